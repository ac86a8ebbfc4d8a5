// The Qt window of the log form: renders a TfLog and feeds it the user's clicks. Compiled only
// when the build has Qt 6 Widgets. Lives on the main thread with its QApplication.
#pragma once

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QUrl>
#include <QWidget>

#include "engine/log_form.h"

namespace pictavo::engine {

inline QString Q(const std::string& s) {
  return QString::fromStdString(s);
}

class LogWindow : public QWidget, public LogView {
 public:
  explicit LogWindow(TfLog& form) : form_(form) {
    setMinimumSize(TfLog::kMinWidth, TfLog::kMinHeight);
    resize(TfLog::kWidth, TfLog::kHeight);
    QFont font("Tahoma");
    font.setPixelSize(11);
    setFont(font);
    setWindowOpacity(0.97);  // the designed window is alpha-blended

    memo_ = new QPlainTextEdit(this);
    memo_->setObjectName("Memo1");
    memo_->setReadOnly(true);
    memo_->setLineWrapMode(QPlainTextEdit::NoWrap);
    memo_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    memo_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    bar_ = new QProgressBar(this);
    bar_->setObjectName("ProgressBar1");
    bar_->setRange(0, 100);
    bar_->setValue(0);
    close_ = new QPushButton(this);
    close_->setObjectName("AdvClose");
    show_files_ = new QPushButton(this);
    show_files_->setObjectName("AdvShowFiles");
    show_files_->hide();
    QObject::connect(close_, &QPushButton::clicked, [this] { form_.AdvCloseClick(); });
    QObject::connect(show_files_, &QPushButton::clicked, [this] { form_.AdvShowFilesClick(); });
    Layout();
  }

  void LineAppended(const std::string& line) override {
    memo_->appendPlainText(Q(line));
    memo_->verticalScrollBar()->setValue(memo_->verticalScrollBar()->maximum());
  }
  void ProgressChanged(int position) override { bar_->setValue(position); }
  void ProcessMessages() override { QCoreApplication::processEvents(); }
  bool Confirm(const std::string& question) override {
    return QMessageBox::question(this, windowTitle(), Q(question),
                                 QMessageBox::Yes | QMessageBox::No) == QMessageBox::Yes;
  }
  void StateChanged() override {
    setWindowTitle(Q(form_.form().form().caption));
    close_->setText(Q(form_.Caption("AdvClose")));
    show_files_->setText(Q(form_.Caption("AdvShowFiles")));
    show_files_->setVisible(form_.show_files_visible);
    if (form_.close_requested) close();
  }
  void OpenFolder(const std::string& folder) override {
    QDesktopServices::openUrl(QUrl::fromLocalFile(Q(folder)));
  }

 protected:
  void resizeEvent(QResizeEvent*) override { Layout(); }
  void closeEvent(QCloseEvent* event) override {
    if (form_.job_running) {
      // Closing during a job is the Stop button: ask, and keep the window.
      form_.AdvCloseClick();
      event->ignore();
      return;
    }
    form_.FormClose();
    event->accept();
  }

 private:
  // The designed anchors: the memo fills the window, the bar sits under it, the buttons at the
  // bottom (Stop/Close right, "Show converted files..." left).
  void Layout() {
    const int w = width(), h = height();
    const int right_gap = TfLog::kWidth - 537, bottom_gap = TfLog::kHeight - 339;
    memo_->setGeometry(15, 16, w - 15 - (TfLog::kWidth - 537), h - 16 - (TfLog::kHeight - 273));
    bar_->setGeometry(15, h - (TfLog::kHeight - 279), w - 15 - right_gap, 17);
    close_->setGeometry(w - right_gap - 100, h - bottom_gap - 31, 100, 31);
    show_files_->setGeometry(15, h - bottom_gap - 31, 178, 31);
  }

  TfLog& form_;
  QPlainTextEdit* memo_;
  QProgressBar* bar_;
  QPushButton* close_;
  QPushButton* show_files_;
};

}  // namespace pictavo::engine
