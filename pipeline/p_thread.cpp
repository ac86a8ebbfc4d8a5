#include "pipeline/p_thread.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

#include "direct/zub_direct.h"
#include "edit/zub_edit.h"
#include "engine/tools/core_share.h"
#include "engine/tools/pdf_tools.h"
#include "engine/tools/probes.h"
#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/trouble.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "pipeline/page_select.h"
#include "pipeline/saving.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "read/zub_read.h"
#include "verify/content.h"
#include "write/zub_convert.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;
using settings::Msg;

std::string FileName(const std::string& path) {
  return fs::path(path).filename().string();
}

// The target as the settings name it: "Main"/"Dest_ext", without a front-end prefix ("a>b").
std::string TargetExt(const settings::TMainSettings& s) {
  std::string ext = s.main.dest_ext;
  if (size_t gt = ext.find('>'); gt != std::string::npos) ext = ext.substr(gt + 1);
  if (!ext.empty() && ext.front() == '.') ext.erase(0, 1);
  return platform::AsciiLower(ext);
}

// Targets whose one file holds every page of the picture.
constexpr std::string_view kManyPageTargets = ";tif;tiff;gif;pdf;ps;dcx;ico;";

imaging::TIOFileType SniffFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  uint8_t head[32] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  return imaging::SniffFormat(head, static_cast<size_t>(in.gcount()));
}

std::string OneDecimal(double seconds) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f", seconds);
  return buf;
}

// Why a picture the engine decodes itself is above the job's caps (pixels, memory); the
// header alone is read, so a few-kilobyte "bomb" never gets its pixels allocated.
std::string OverJobLimits(const std::string& file, const imaging::PictureLimits& limits) {
  imaging::TIEBitmap probe;
  probe.SetLimits(&limits);
  imaging::TImageEnIO io(&probe);
  // A decoder that refuses the header for the pixel cap says so itself; any other failure is
  // the reader chain's to report.
  if (pictavo::Status st = io.ParamsFromFile(file); !st.ok())
    return st.code() == imaging::kOverJobLimit ? st.message() : std::string();
  const uint64_t w = static_cast<uint64_t>(std::max(0, io.Params().Width));
  const uint64_t h = static_cast<uint64_t>(std::max(0, io.Params().Height));
  const uint64_t bits = static_cast<uint64_t>(std::max(1, io.Params().BitsPerSample)) *
                        static_cast<uint64_t>(std::max(1, io.Params().SamplesPerPixel));
  const uint64_t bytes = w * h / 8 * bits;
  return imaging::PictureOverLimits(limits, w, h, bytes);
}

// The same for a PDF, whose largest page at the reading resolution would be rendered by the
// interpreter before the engine sees a pixel of it.
std::string PdfAbovePixelLimit(const std::string& file, const settings::TMainSettings& settings,
                               const imaging::PictureLimits& limits, const tools::JobContext* job) {
  const tools::PageSize page = tools::PdfLargestPage(file, settings.main.temp_folder, job);
  const int dpi = std::clamp(settings.pdf_eps_ps.res > 0 ? settings.pdf_eps_ps.res : 300, 10, 2400);
  const double w = page.width / 72.0 * dpi, h = page.height / 72.0 * dpi;
  const uint64_t limit = limits.max_pixels;
  if (w * h <= static_cast<double>(limit)) return {};
  char size[96];
  std::snprintf(size, sizeof size, "a page of %.0f x %.0f points is %.0f x %.0f pixels at %d dpi",
                page.width, page.height, w, h, dpi);
  return std::string(size) + "," + imaging::AbovePixelLimit(limit);
}

}  // namespace

TPThread::TPThread(JobContext context) : context_(std::move(context)) {
  if (context_.job != nullptr) picture_limits_ = PictureLimitsOf(context_.job->limits);
}

TPThread::~TPThread() {
  Terminate();
}

void TPThread::Resume() {
  if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
}

void TPThread::Terminate() {
  {
    platform::MutexLock lock(mutex_);
    terminate_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool TPThread::set_paremeters(int index, int count, const std::string& source, bool check_only,
                              const settings::DestNames& dest) {
  platform::MutexLock lock(mutex_);
  if (busy_ || terminate_) return false;
  index_ = index;
  count_ = count;
  source_ = source;
  check_only_ = check_only;
  dest_ = dest;
  work_file_.clear();
  written_.clear();
  page_count_ = 1;
  failure_.clear();
  skipped_ = false;
  if (!pending_log_.empty()) pending_log_ += "\r\n";
  pending_log_ += M(Msg::kFile) + " " + std::to_string(index + 1) + " " + M(Msg::kOf) + " " +
                  std::to_string(count) + ": " + source;
  route_ = DecideRoute(source, context_.settings, check_only);
  busy_ = true;
  wake_.notify_all();
  return true;
}

bool TPThread::Busy() const {
  platform::MutexLock lock(mutex_);
  return busy_;
}

std::string TPThread::TakeLog() {
  platform::MutexLock lock(mutex_);
  std::string text;
  text.swap(pending_log_);
  return text;
}

int TPThread::FilesDone() const {
  platform::MutexLock lock(mutex_);
  return files_done_;
}

int TPThread::FilesFinished() const {
  platform::MutexLock lock(mutex_);
  return files_finished_;
}

FileOutcome TPThread::LastOutcome() const {
  platform::MutexLock lock(mutex_);
  return last_outcome_;
}

std::string TPThread::LastSavedFolder() const {
  platform::MutexLock lock(mutex_);
  return last_saved_folder_;
}

Route TPThread::route() const {
  platform::MutexLock lock(mutex_);
  return route_;
}

void TPThread::print_log(const std::string& text) {
  platform::MutexLock lock(mutex_);
  pending_log_ += text;
}

std::string TPThread::ScratchName(const std::string& ext) {
  return tools::NewTempName(context_.temp_folder) + ext;
}

void TPThread::Run() {
  while (true) {
    {
      platform::MutexLock lock(mutex_);
      while (!busy_ && !terminate_) wake_.wait(lock);
      if (!busy_) return;  // terminated while idle
    }
    ProcessFile();
    platform::MutexLock lock(mutex_);
    busy_ = false;
    ++files_finished_;
  }
}

void TPThread::ProcessFile() {
  const auto start = std::chrono::steady_clock::now();
  const tools::BusyWithFile busy;
  bool ok = false;
  // No exception may leave the worker: a stage that throws fails its file.
  try {
    if (check_only_) {
      ok = CheckFile();
    } else if (ResultKeptAsItIs()) {
      skipped_ = true;
    } else if (route_.direct) {
      ok = Direct_convert() && SaveAll();
    } else {
      ok = Read() && Edit() && Convert() && SaveAll();
    }
    if (!check_only_ && !(skipped_ && !ok)) {
      std::string log;
      FinishOriginal(source_, ok, context_.settings, *context_.messages, log);
      print_log(log);
    }
  } catch (const std::exception& e) {
    print_log(kStepPrefix + M(Msg::kError) + " " + e.what());
    if (failure_.empty()) failure_ = e.what();
    ok = false;
  }
  hand_over_.Forget();  // a picture no stage took is not held over to the next file
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  print_log(kStepPrefix + M(Msg::kProcessingTime) + " " + OneDecimal(seconds) + " " + M(Msg::kSec));

  // Scratch files of this file; the folder is this worker's own, so no other file is touched.
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(context_.temp_folder, ec)) {
    if (entry.path().filename().string().rfind(tools::kScratchPrefix, 0) == 0) {
      std::error_code ignore;
      fs::remove_all(entry.path(), ignore);
    }
  }
  platform::MutexLock lock(mutex_);
  if (ok) ++files_done_;
  last_outcome_.index = index_;
  last_outcome_.source = source_;
  last_outcome_.kind = ok && !skipped_  ? FileOutcome::Kind::kDone
                       : ok || skipped_ ? FileOutcome::Kind::kSkipped
                       : skipped_       ? FileOutcome::Kind::kSkipped
                                        : FileOutcome::Kind::kFailed;
  last_outcome_.reason = ok ? std::string() : failure_;
}

std::string TPThread::ReadFailureReason(const Status& status) const {
  if (status.code() == reader::kNoToolFolder) return M(Msg::kNoToolFolder);
  return status.message().empty() ? M(Msg::kNoReaderOpened) : status.message();
}

bool TPThread::Fail(const std::string& line, Msg stage, std::string reason) {
  std::string text = line.empty() ? std::string() : line + " " + M(Msg::kFail);
  text += kStepPrefix + M(Msg::kError) + " " + M(stage) + " " + FileName(source_);
  if (!reason.empty()) text += std::string(kStepPrefix) + "   " + reason;
  print_log(text);
  if (failure_.empty()) failure_ = std::move(reason);
  return false;
}

bool TPThread::ResultKeptAsItIs() {
  if (PolicyOf(context_.settings.save.overwrite) != OverwritePolicy::kSkip) return false;
  const std::string first = context_.plan ? context_.plan->FirstResult(index_) : dest_.result;
  // The plan gives every result of the job a name of its own, so a result already there was
  // there before the job. Where the names depend on the page count, the first page's decides.
  if (first.empty() || SamePath(first, source_) || !platform::FileExists(first)) return false;
  print_log(kStepPrefix + M(Msg::kSkipped) + ": " + first + " " + M(Msg::kWasSkipped));
  failure_ = "its result exists already (\"Save\"/\"OverWrite\" 2 keeps it): " + first;
  return true;
}

bool TPThread::CheckFile() {
  std::string line =
      kStepPrefix + std::string("Checking file...") + " " + FileName(source_) + "...";
  reader::TZubRead r;
  r.src_file = source_;
  r.out_file = ScratchName(".tif");
  r.settings = &context_.settings;
  r.settings_file = context_.cfg_file;
  r.temp_folder = context_.temp_folder;
  r.picture_limits = &picture_limits_;
  r.job = context_.job;
  const Status status = r.Run();
  std::error_code ec;
  fs::remove(r.out_file, ec);
  if (!status.ok()) {
    print_log(line);
    return Fail(std::string(), Msg::kCouldNotRead, ReadFailureReason(status));
  }
  print_log(line + " OK");
  return true;
}

bool TPThread::Read() {
  std::this_thread::sleep_for(std::chrono::milliseconds(context_.poll_ms));
  // The read and edit stages' scratch TIFFs are loaded by the next stage at once.
  const imaging::TKeepSavesForNextLoad keep_scratch(hand_over_);
  const std::string& tag = route_.source_tag;
  const imaging::TIOFileType sniffed = SniffFile(source_);
  bool as_is = false;
  if (InList(tag, ";tif;tiff;")) {
    as_is = valid_tif(source_);
  } else if (tag == ";png;") {
    as_is = sniffed == imaging::TIOFileType::ioPNG && !tools::PngIsAnimated(source_);
  } else if (InList(tag, ";jpeg;jpg;bmp;gif;pcx;tga;tif;tiff;ppm;pbm;pgm;") && !route_.read_16bit) {
    // The engine loads by content, so a misnamed file of a format it knows is fine as it is.
    as_is = sniffed != imaging::TIOFileType::ioUnknown || tag == ";tga;";
  }
  std::string line = kStepPrefix + M(Msg::kReadingFile);
  // A stale list entry or an unreadable file fails at once: no reader or tool is started on it.
  const auto refuse = [&](const std::string& why) { return Fail(line, Msg::kCouldNotRead, why); };
  if (!platform::FileExists(source_)) return refuse(M(Msg::kNoSuchFile));
  if (std::string why = platform::CannotReadFile(source_); !why.empty()) return refuse(why);
  const bool pdf =
      sniffed == imaging::TIOFileType::ioPDF ||
      (sniffed == imaging::TIOFileType::ioUnknown && reader::TZubRead::is_pdf(source_));
  if (sniffed != imaging::TIOFileType::ioUnknown || pdf) {
    const std::string why =
        pdf ? PdfAbovePixelLimit(source_, context_.settings, picture_limits_, context_.job)
            : OverJobLimits(source_, picture_limits_);
    if (!why.empty()) return refuse(why);
  }
  if (as_is) {
    work_file_ = source_;
  } else {
    reader::TZubRead r;
    r.src_file = source_;
    r.out_file = ScratchName(".tif");
    r.settings = &context_.settings;
    r.settings_file = context_.cfg_file;
    r.temp_folder = context_.temp_folder;
    r.picture_limits = &picture_limits_;
    r.job = context_.job;
    r.job = context_.job;
    r.hand_over = &hand_over_;
    const Status status = r.Run();
    if (!status.ok()) return Fail(line, Msg::kCouldNotRead, ReadFailureReason(status));
    work_file_ = r.out_file;
  }

  PageSelection sel = SelectPages(work_file_, context_.settings, context_.temp_folder, &hand_over_);
  if (sel.all_blank) {
    print_log(line + " " + M(Msg::kDone) + kStepPrefix + "All pages are blank. File was skipped.");
    skipped_ = true;
    failure_ = "all pages are blank";
    return false;
  }
  if (!sel.file.empty()) {
    if (work_file_ != source_) {
      std::error_code ec;
      fs::remove(work_file_, ec);
    }
    work_file_ = sel.file;
  }
  page_count_ = sel.pages;
  print_log(line + " " + M(Msg::kDone));
  return true;
}

bool TPThread::Edit() {
  const imaging::TKeepSavesForNextLoad keep_scratch(hand_over_);
  const settings::TMainSettings& s = context_.settings;
  const bool has_actions = !context_.act_file.empty();
  if (!has_actions) {
    if (!s.main.show_transp || editing::HeaderRulesOutAlpha(work_file_)) return true;
  }
  // Actions work on a scratch copy, never on the source, and on TIFF so that nothing is lost
  // to a lossy format between the actions and the writer.
  if (work_file_ == source_ || !InList(TypeTag(work_file_), ";tif;tiff;")) {
    const std::string copy = ScratchName(".tif");
    const int denom = ShrinkOnLoad(work_file_, context_.act_file, &hand_over_);
    if (Status st = CopyAsTiff(work_file_, copy, denom, &hand_over_); !st.ok())
      return Fail(std::string(), Msg::kCouldNotApplyActions, st.message());
    if (work_file_ != source_) {
      std::error_code ec;
      fs::remove(work_file_, ec);
    }
    work_file_ = copy;
  }
  editing::TZubEdit e;
  e.work_file = work_file_;
  e.source_file = source_;
  e.settings = &context_.settings;
  e.act_file = context_.act_file;
  e.temp_folder = context_.temp_folder;
  e.picture_limits = &picture_limits_;
  e.hand_over = &hand_over_;
  e.job = context_.job;
  std::string edit_log;
  const Status status =
      e.Run(edit_log, M(Msg::kDone), M(Msg::kPage), M(Msg::kSkipped), M(Msg::kFail));
  std::string text;
  if (has_actions) {
    text = kStepPrefix + M(Msg::kApplyingActions);
    while (!edit_log.empty() && (edit_log.back() == '\n' || edit_log.back() == '\r'))
      edit_log.pop_back();
    if (!edit_log.empty()) {
      if (edit_log.rfind("\r\n", 0) != 0) text += "\r\n";
      text += edit_log;
    }
  }
  if (!status.ok()) {
    print_log(text);
    return Fail(std::string(), Msg::kCouldNotApplyActions, status.message());
  }
  print_log(text);
  return true;
}

bool TPThread::Convert() {
  const std::string ext = TargetExt(context_.settings);
  std::string line = kStepPrefix + M(Msg::kConvertingTo) + " " + platform::AsciiUpper(ext) + "...";
  if (page_count_ > 1) line += " (" + std::to_string(page_count_) + " pages)";
  direct::TZubDirect d;
  PrepareDirect(d);
  if (work_file_ == source_) {
    // Writers may work on their input file in place; they get a scratch copy, never the source.
    const std::string copy = ScratchName(fs::path(source_).extension().string());
    std::error_code ec;
    fs::copy_file(source_, copy, fs::copy_options::overwrite_existing, ec);
    if (ec) return Fail(line, Msg::kCouldNotConvert, ec.message());
    work_file_ = copy;
  }
  writer::TZubConvert c;
  c.job_id = context_.job_kind * 100 + context_.job_variant * 10 + context_.job_selector;
  c.src_file = work_file_;
  c.dest_file = ScratchName("." + ext);
  c.settings = &context_.settings;
  c.temp_folder = context_.temp_folder;
  c.direct = &d;
  c.hand_over = &hand_over_;
  c.job = context_.job;
  // A JPEG holds 8 bits per sample: a deeper picture is narrowed while it is decoded, unless the
  // colour settings first turn it into something else.
  std::optional<imaging::TEightBitLoads> eight_bit;
  if ((ext == "jpg" || ext == "jpeg") && context_.settings.colors.option_flags.Is(1))
    eight_bit.emplace(hand_over_);
  Status status = c.Run();
  eight_bit.reset();
  written_ = c.written_files;
  if (written_.empty()) written_.push_back({c.dest_file, 0});
  for (const WrittenFile& w : written_)
    if (status.ok() && !platform::FileExists(w.file_name))
      status = Status::Error(M(Msg::kNoResult), writer::kNothingWritten);
  if (status.ok()) status = CheckWritten(ext);
  const bool ok = FinishConvertLine(std::move(line), status, status.code() == writer::kNotHandled);
  // A target of one picture keeps the first page unless every page is asked for as a file of
  // its own ("Multipage"/"Option" 3): said, not dropped silently.
  if (ok && written_.size() == 1 && page_count_ > 1 && !InList(";" + ext + ";", kManyPageTargets))
    print_log(std::string(kStepPrefix) + "Only the first of " + std::to_string(page_count_) +
              " pages was written: " + platform::AsciiUpper(ext) +
              " holds one picture (\"Multipage\"/\"Option\" 3 writes every page to a file of "
              "its own)");
  return ok;
}

bool TPThread::Direct_convert() {
  const std::string ext = TargetExt(context_.settings);
  std::string src_ext = route_.source_tag.substr(1, route_.source_tag.size() - 2);
  std::string line = kStepPrefix + M(Msg::kConvertingFrom) + " " + platform::AsciiUpper(src_ext) +
                     " " + M(Msg::kTo) + " " + platform::AsciiUpper(ext) + "...";
  direct::TZubDirect d;
  PrepareDirect(d);
  d.src_file = source_;
  d.dest_file = ScratchName("." + ext);
  Status status = d.Run();
  written_.clear();
  if (platform::FileExists(d.dest_file)) written_.push_back({d.dest_file, 0});
  for (const WrittenFile& w : d.more_files) {
    const bool listed = std::any_of(written_.begin(), written_.end(), [&](const WrittenFile& x) {
      return x.file_name == w.file_name;
    });
    if (!listed && platform::FileExists(w.file_name)) written_.push_back(w);
  }
  if (status.ok() && written_.empty())
    status = Status::Error(M(Msg::kNoResult), direct::kDirectFailed);
  return FinishConvertLine(std::move(line), status, status.code() == direct::kDirectNoRoute);
}

Status TPThread::CheckWritten(const std::string& ext) {
  const std::string tool_folder = platform::ExecutableFolder() + "utl" + platform::kPathDelim;
  for (const WrittenFile& w : written_) {
    const verify::Content got =
        verify::Inspect(w.file_name, ext, tool_folder, context_.temp_folder, context_.job);
    Status why;
    if (!got.opened.ok()) {
      why = Status::Error("the " + platform::AsciiUpper(ext) +
                          " result cannot be read back: " + got.opened.message());
    } else if (written_.size() == 1 && page_count_ > 1 && got.pages >= 0 &&
               got.pages < page_count_ && InList(";" + ext + ";", kManyPageTargets)) {
      why = Status::Error("the result had " + std::to_string(got.pages) + " of " +
                          std::to_string(page_count_) + " pages");
    }
    if (why.ok()) continue;
    tools::NoteTrouble(tools::Trouble::kResultRejected, why.message());
    for (const WrittenFile& x : written_) {
      std::error_code ec;
      fs::remove(x.file_name, ec);
    }
    return Status::Error(why.message(), writer::kNothingWritten);
  }
  return Status::OK();
}

void TPThread::PrepareDirect(direct::TZubDirect& d) {
  d.settings = &context_.settings;
  d.exe_folder = platform::ExecutableFolder();
  d.temp_folder = context_.temp_folder;
  d.job = context_.job;
  // Results appear in the scratch folder, never beside the source.
  d.dest_folder = context_.temp_folder;
}

bool TPThread::FinishConvertLine(std::string line, const Status& status, bool unsupported) {
  if (status.ok()) {
    print_log(line + " " + M(Msg::kDone));
    return true;
  }
  if (unsupported) {
    print_log(line + " " + M(Msg::kFail) + kStepPrefix + M(Msg::kError) + " " +
              M(Msg::kFormatNotSupported));
    if (failure_.empty()) failure_ = M(Msg::kFormatNotSupported);
    return false;
  }
  return Fail(line, Msg::kCouldNotConvert,
              status.message().empty() ? M(Msg::kNoResult) : status.message());
}

bool TPThread::SaveAll() {
  const settings::TMainSettings& s = context_.settings;
  const bool many = written_.size() > 1;
  bool ok = true;
  bool all_skipped = !written_.empty();
  std::string saved_folder;
  for (size_t i = 0; i < written_.size(); ++i) {
    const WrittenFile& w = written_[i];
    // Writers number pages from 0 and some direct routines from 1; the list is in page order
    // either way, so the position is the page.
    const int page = many ? static_cast<int>(i) : 0;
    std::string dest = dest_.result;
    std::string taken_by, wanted;
    if (many) {
      dest = context_.plan ? context_.plan->PageName(index_, page, &taken_by)
                           : PageDestination(s, source_, index_, page);
      if (!taken_by.empty()) wanted = PageDestination(s, source_, index_, page);
    } else if (context_.plan) {
      const PlannedFile& planned = context_.plan->files()[static_cast<size_t>(index_)];
      taken_by = planned.taken_by;
      wanted = planned.wanted;
    }
    // A name that another result of the job holds is said, with whose it is.
    const std::string note = taken_by.empty() ? std::string()
                                              : "the name " + fs::path(wanted).filename().string() +
                                                    " was taken by " + taken_by + " in this job";
    std::string log;
    // A PDF is finished while it is still a scratch file, so the result appears complete.
    if (platform::AsciiLower(fs::path(w.file_name).extension().string()) == ".pdf")
      FinishPdf(w.file_name, s, context_.temp_folder, *context_.messages, log, context_.job);
    SaveResult r =
        SaveWritten(w.file_name, dest, source_, index_, s, *context_.messages, log, note);
    all_skipped = all_skipped && r.skipped;
    if (r.ok && !r.skipped) {
      saved_folder = fs::path(r.final_path).parent_path().string();
      // Thumbnails come from the result when the engine reads it, else from the working picture.
      std::string picture =
          SniffFile(r.final_path) != imaging::TIOFileType::ioUnknown ? r.final_path : work_file_;
      if (!picture.empty() && platform::FileExists(picture))
        create_thumb(picture, dest_, page, s, *context_.messages, log);
    }
    if (!r.ok && failure_.empty())
      failure_ = r.error.empty() ? "the result could not be saved at " + dest : r.error;
    ok = ok && r.ok;
    print_log(log);
  }
  if (!saved_folder.empty()) {
    platform::MutexLock lock(mutex_);
    last_saved_folder_ = saved_folder;
  }
  if (ok && all_skipped) {
    skipped_ = true;
    failure_ = "the result exists already (\"Save\"/\"OverWrite\" keeps it)";
  }
  return ok;
}

}  // namespace pictavo::pipeline
