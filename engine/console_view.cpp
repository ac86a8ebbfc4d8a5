#include "engine/console_view.h"

#include <string>

namespace pictavo::engine {
namespace {

constexpr int kBarWidth = 40;

}  // namespace

ConsoleView::ConsoleView(std::FILE* out, std::FILE* bar) : out_(out), bar_(bar) {}

ConsoleView::~ConsoleView() {
  ClearBar();
}

void ConsoleView::ClearBar() {
  if (bar_ && bar_drawn_) {
    std::fputs("\r\033[K", bar_);
    std::fflush(bar_);
    bar_drawn_ = false;
  }
}

void ConsoleView::LineAppended(const std::string& line) {
  ClearBar();
  std::fputs(line.c_str(), out_);
  std::fputc('\n', out_);
  std::fflush(out_);
}

void ConsoleView::ProgressChanged(int position) {
  if (!bar_) return;
  if (position < 0) position = 0;
  if (position > 100) position = 100;
  const int filled = position * kBarWidth / 100;
  std::string bar = "\r[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] " +
                    std::to_string(position) + "%";
  if (bar_drawn_ && bar == bar_text_) return;
  std::fputs(bar.c_str(), bar_);
  std::fflush(bar_);
  bar_drawn_ = true;
  bar_text_ = std::move(bar);
}

bool ConsoleView::Confirm(const std::string& question) {
  // Reached through Ctrl-C only, which is the user's answer already.
  (void)question;
  return true;
}

void ConsoleView::OpenFolder(const std::string& folder) {
  std::fprintf(out_, "%s\n", folder.c_str());
}

}  // namespace pictavo::engine
