// Whole jobs under injected faults. Every case checks the same promises: the job ends with a
// summary whose count matches the results on disk, every source is byte-identical, no result
// is half-written under its final name, and no scratch file or "_(extracted)" folder is left.
//
// Tool faults run a copy of the engine in a folder of its own whose utl/ links the real tools,
// except the one under test, which is tests/faults/fault_tool told by PICTAVO_FAULT how to fail.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/command_line.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "settings/main_settings.h"
#include "settings/mem_ini_file.h"
#include "tests/support/process_watch.h"
#include "tests/support/test_paths.h"

namespace pictavo {
namespace {

namespace fs = std::filesystem;

std::string BuiltEngine() {
  return testing::BuildDir() + "/pictavo-engine";
}

// A copy (hard link) of the engine and the front end in `root`, with the guard their programs
// start under and a tool folder of links to the real tools; convert.bin is the fault tool, or is
// left out when `with_fault_tool` is false.
std::string FakeInstall(const fs::path& root, bool with_fault_tool) {
  const fs::path engine = root / "pictavo-engine";
  std::error_code ec;
  fs::create_directories(root / "utl");
  for (const char* program : {"pictavo-engine", "pictavo"}) {
    const fs::path built = fs::path(testing::BuildDir()) / program;
    if (fs::exists(root / program) || !fs::exists(built)) continue;
    fs::create_hard_link(built, root / program, ec);  // /proc/self/exe names the link's folder
    if (ec) fs::copy_file(built, root / program);
  }
  if (!fs::exists(root / "pictavo-guard"))
    fs::create_symlink(fs::path(testing::BuildDir()) / "pictavo-guard", root / "pictavo-guard");
  for (const auto& e : fs::directory_iterator(fs::path(testing::BuildDir()) / "utl")) {
    const fs::path link = root / "utl" / e.path().filename();
    if (e.path().filename() != "convert.bin" && !fs::is_symlink(link))
      fs::create_symlink(e.path(), link, ec);
  }
  const fs::path tool = root / "utl" / "convert.bin";
  fs::remove(tool, ec);
  if (with_fault_tool)
    fs::create_symlink(fs::path(testing::BuildDir()) / "tests/faults/fault_tool", tool);
  return engine.string();
}

void MakePicture(const std::string& path, int width, int height, uint32_t color) {
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(width, height, imaging::TIEPixelFormat::ie24RGB).ok());
  bmp.Fill(color);
  fs::create_directories(fs::path(path).parent_path());
  imaging::TImageEnIO io(&bmp);
  ASSERT_TRUE(io.SaveToFile(path).ok()) << path;
}

bool Loads(const std::string& path) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp);
  return io.LoadFromFile(path).ok() && bmp.Width() > 0;
}

void AppendChunk(std::string& png, const char* type, const std::string& data) {
  auto be32 = [&png](uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) png += static_cast<char>((v >> s) & 0xFF);
  };
  be32(static_cast<uint32_t>(data.size()));
  const std::string body = std::string(type, 4) + data;
  png += body;
  be32(static_cast<uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()))));
}

// A 1-bit grey PNG of `side` x `side` white pixels: a few dozen kilobytes on disk.
std::string BombPng(uint32_t side) {
  std::string png = "\x89PNG\r\n\x1a\n";
  std::string ihdr;
  for (uint32_t v : {side, side})
    for (int s = 24; s >= 0; s -= 8) ihdr += static_cast<char>((v >> s) & 0xFF);
  ihdr += std::string("\x01\x00\x00\x00\x00", 5);
  AppendChunk(png, "IHDR", ihdr);
  const size_t row = 1 + (side + 7) / 8;
  std::string raw(row * side, '\xFF');
  for (size_t y = 0; y < side; ++y) raw[y * row] = 0;  // filter byte
  uLongf size = compressBound(raw.size());
  std::string packed(size, '\0');
  compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
            reinterpret_cast<const Bytef*>(raw.data()), raw.size(), 9);
  packed.resize(size);
  AppendChunk(png, "IDAT", packed);
  AppendChunk(png, "IEND", "");
  return png;
}

// A zip archive of stored or deflated entries, names taken as given ("../x", "/abs/y").
std::string Zip(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string zip, central;
  auto le = [](std::string& s, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
  };
  for (const auto& [name, data] : entries) {
    const uint32_t crc = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
    // Raw deflate (no zlib header), as zip stores it.
    z_stream z{};
    deflateInit2(&z, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&z, data.size()), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = reinterpret_cast<Bytef*>(packed.data());
    z.avail_out = static_cast<uInt>(packed.size());
    deflate(&z, Z_FINISH);
    packed.resize(z.total_out);
    deflateEnd(&z);
    const uint32_t offset = static_cast<uint32_t>(zip.size());
    std::string local;
    le(local, 0x04034b50, 4);
    le(local, 20, 2), le(local, 0, 2), le(local, 8, 2), le(local, 0, 4);
    le(local, crc, 4), le(local, static_cast<uint32_t>(packed.size()), 4);
    le(local, static_cast<uint32_t>(data.size()), 4);
    le(local, static_cast<uint32_t>(name.size()), 2), le(local, 0, 2);
    zip += local + name + packed;
    le(central, 0x02014b50, 4);
    le(central, 20, 2), le(central, 20, 2), le(central, 0, 2), le(central, 8, 2), le(central, 0, 4);
    le(central, crc, 4), le(central, static_cast<uint32_t>(packed.size()), 4);
    le(central, static_cast<uint32_t>(data.size()), 4);
    le(central, static_cast<uint32_t>(name.size()), 2);
    le(central, 0, 2), le(central, 0, 2), le(central, 0, 2), le(central, 0, 2), le(central, 0, 4);
    le(central, offset, 4);
    central += name;
  }
  const uint32_t central_at = static_cast<uint32_t>(zip.size());
  zip += central;
  le(zip, 0x06054b50, 4);
  le(zip, 0, 2), le(zip, 0, 2);
  le(zip, static_cast<uint32_t>(entries.size()), 2),
      le(zip, static_cast<uint32_t>(entries.size()), 2);
  le(zip, static_cast<uint32_t>(central.size()), 4), le(zip, central_at, 4), le(zip, 0, 2);
  return zip;
}

std::string RandomBytes(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>((seed = seed * 1103515245u + 12345u) >> 16);
  return s;
}

// A picture of random pixels: no compressor makes it much smaller than width x height x 3.
void MakeNoise(const std::string& path, int width, int height, unsigned seed) {
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(width, height, imaging::TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < height; ++y) {
    uint8_t* row = bmp.Scanline(y);
    for (int x = 0; x < width * 3; ++x)
      row[x] = static_cast<uint8_t>((seed = seed * 1103515245u + 12345u) >> 16);
  }
  fs::create_directories(fs::path(path).parent_path());
  imaging::TImageEnIO io(&bmp);
  ASSERT_TRUE(io.SaveToFile(path).ok()) << path;
}

// A tmpfs of `bytes` mounted over `path` while the object lives: a disk that fills up for real,
// or one that nobody may write to, root included. Mounting needs root, which CI has; elsewhere the
// test says so and skips.
class SmallDisk {
 public:
  SmallDisk(const std::string& path, size_t bytes, bool read_only = false) : path_(path) {
    fs::create_directories(path);
    const std::string options = "size=" + std::to_string(bytes);
    const unsigned long flags = MS_NOSUID | MS_NODEV | (read_only ? MS_RDONLY : 0);
    mounted_ = ::mount("tmpfs", path.c_str(), "tmpfs", flags, options.c_str()) == 0;
    if (!mounted_) why_ = std::strerror(errno);
  }
  ~SmallDisk() {
    if (mounted_) ::umount2(path_.c_str(), MNT_DETACH);
  }
  bool mounted() const { return mounted_; }
  const std::string& why() const { return why_; }

 private:
  std::string path_, why_;
  bool mounted_ = false;
};

// "   Error: Could not ... NAME" and, on the next line, indented, a reason that says something.
const std::regex kReasonUnderError(R"(\n   Error: Could not [^\n]*\n      \S[^\n]{8,})");
// A saving error names its cause on its own line: "   Error: cannot write X: No space left".
const std::regex kErrorWithReason(R"(\n   Error: (?!Could not)\S[^\n]{8,})");

class FaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(BuiltEngine())) GTEST_SKIP() << "build/pictavo-engine is not built";
    setenv("PICTAVO_UI", "console", 1);
    unsetenv("PICTAVO_WAIT");
    unsetenv("PICTAVO_FAULT");
    engine_ = BuiltEngine();
    settings_.SetDefault();
    settings_.main.dest_path = dir_.file("out");
    settings_.main.dest_ext = "PNG";
    settings_.main.temp_folder = dir_.file("temp");
    settings_.main.use_file_list = dir_.file("job.lst");
    settings_.main.file_mask = "*";
    settings_.main.cpu_priority = 2;
  }
  void TearDown() override {
    unsetenv("PICTAVO_FAULT");
    unsetenv("PICTAVO_FAULT_PIDS");
  }

  // Writes the job files; `limits` are "Limits" keys added to the settings file.
  void WriteJob(const std::vector<std::string>& entries,
                const std::map<std::string, int>& limits = {}) {
    std::string list;
    for (const std::string& e : entries) list += e + "\r\n";
    std::ofstream(dir_.file("job.lst"), std::ios::binary) << list;
    ASSERT_TRUE(settings_.write_ini_settings(dir_.file("job.cfg"), 1).ok());
    if (limits.empty()) return;
    settings::MemIniFile ini;
    ASSERT_TRUE(ini.Load(dir_.file("job.cfg")).ok());
    for (const auto& [key, value] : limits) ini.WriteInteger("Limits", key, value);
    ASSERT_TRUE(ini.Save(dir_.file("job.cfg")).ok());
  }

  int Run(const std::string& code = "12", const std::string& act = "") {
    const std::string out = dir_.file("engine.out");
    const auto start = std::chrono::steady_clock::now();
    const int rc = tools::RunBatch(
        tools::Quoted(engine_) + " " + code + " " + tools::Quoted(dir_.file("job.cfg")) +
            (act.empty() ? "" : " " + tools::Quoted(act)) + " > " + tools::Quoted(out) + " 2>&1",
        "");
    seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    log_ = platform::ReadFileBytes(out).value_or("");
    ++jobs_run_;
    return rc;
  }

  void RememberSources(const std::vector<std::string>& files) {
    for (const std::string& f : files) sources_[f] = platform::ReadFileBytes(f).value_or("?");
  }

  // The promises every case keeps. `expected_done` < 0: whatever the results on disk say.
  // `total` < 0: whatever the summary says; `stopped`: a stopped file has no error line.
  void ExpectPromisesKept(int total, int expected_done, bool stopped = false) {
    std::smatch m;
    ASSERT_TRUE(std::regex_search(log_, m, std::regex(R"((\d+) of (\d+) files were successfully)")))
        << log_;
    const int done = std::stoi(m[1]);
    if (total < 0) total = std::stoi(m[2]);
    EXPECT_EQ(std::stoi(m[2]), total) << log_;
    if (expected_done >= 0) EXPECT_EQ(done, expected_done) << log_;
    // Every result under a final name is whole; scratch names never survive.
    int results = 0;
    if (fs::exists(dir_.file("out")))
      for (const auto& e : fs::recursive_directory_iterator(dir_.file("out"))) {
        if (!e.is_regular_file()) continue;
        const std::string name = e.path().filename().string();
        EXPECT_FALSE(name.rfind(".rcp", 0) == 0 || name.find(".part") != std::string::npos)
            << "scratch file left: " << e.path();
        EXPECT_TRUE(Loads(e.path().string())) << "broken result: " << e.path();
        ++results;
      }
    EXPECT_EQ(results, done) << "the summary and the results disagree\n" << log_;
    if (!stopped) {
      EXPECT_EQ(static_cast<int>(Count(log_, "   Error")), total - done) << log_;
      // Every failure says why: a reason under each error line, and one line each in the
      // summary's list of failed files.
      const auto matches = [this](const std::regex& re) {
        return static_cast<int>(
            std::distance(std::sregex_iterator(log_.begin(), log_.end(), re), {}));
      };
      EXPECT_EQ(matches(kReasonUnderError) + matches(kErrorWithReason), total - done) << log_;
      const size_t list = log_.find("\nFiles that failed:\n");
      EXPECT_EQ(list != std::string::npos, total > done) << log_;
      if (list != std::string::npos) {
        const std::string tail = log_.substr(list);
        EXPECT_EQ(static_cast<int>(Count(tail, "\n   /")), total - done) << log_;
      }
    }
    for (const auto& [path, bytes] : sources_)
      EXPECT_EQ(platform::ReadFileBytes(path).value_or("<gone>"), bytes) << path;
    std::vector<std::string> left;
    if (fs::exists(dir_.file("temp")))
      for (const auto& e : fs::directory_iterator(dir_.file("temp")))
        left.push_back(e.path().filename().string());
    EXPECT_TRUE(left.empty()) << "left in the temp folder: " << ::testing::PrintToString(left);
    for (const auto& e : fs::recursive_directory_iterator(dir_.path()))
      EXPECT_EQ(e.path().filename().string().find("_(extracted)"), std::string::npos) << e.path();
  }

  // Starts `argv` in the background with stdout and stderr into dir_/engine.out.
  pid_t Start(const std::vector<std::string>& argv) {
    const std::string out = dir_.file("engine.out");
    const pid_t pid = fork();
    if (pid == 0) {
      const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(fd, 1), dup2(fd, 2);
      std::vector<char*> words;
      for (const std::string& a : argv) words.push_back(const_cast<char*>(a.c_str()));
      words.push_back(nullptr);
      execv(words[0], words.data());
      _exit(127);
    }
    return pid;
  }

  // The hanging fault tool's pid and its child's, once it has written them (PICTAVO_FAULT_PIDS).
  bool HungToolPids(pid_t& tool, pid_t& child) {
    for (int i = 0; i < 1500; ++i) {
      std::ifstream in(dir_.file("tool.pids"));
      if (in >> tool >> child) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

  // Seconds until every one of `pids` has ended, or `limit` when one still runs then.
  static double SecondsUntilEnded(const std::vector<pid_t>& pids, double limit) {
    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    while (elapsed() < limit) {
      bool all = true;
      for (pid_t p : pids) all = all && testing::ProcessEnded(p);
      if (all) return elapsed();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return limit;
  }

  // The names in the temp folder.
  std::vector<std::string> TempEntries() const {
    std::vector<std::string> left;
    if (fs::exists(dir_.file("temp")))
      for (const auto& e : fs::directory_iterator(dir_.file("temp")))
        left.push_back(e.path().filename().string());
    return left;
  }

  static size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
  }

  testing::TempDir dir_;
  settings::TMainSettings settings_;
  std::string engine_;
  std::map<std::string, std::string> sources_;
  std::string log_;
  double seconds_ = 0;
  int jobs_run_ = 0;
};

// One job per tool fault: an EXR goes to convert.bin, a JPEG next to it is read in-process.
TEST_F(FaultTest, FailingToolsFailTheirFileAlone) {
  const std::string exr = dir_.file("in/scene.exr"), jpg = dir_.file("in/photo.jpg");
  fs::create_directories(dir_.file("in"));
  std::ofstream(exr, std::ios::binary) << "v/1\x01 not really OpenEXR";
  MakePicture(jpg, 32, 24, 0x3366CC);
  RememberSources({exr, jpg});
  engine_ = FakeInstall(dir_.path() / "install-fault", true);
  // What the reason under the error line must say for each fault.
  const std::map<std::string, std::string> reasons = {
      {"exit", "convert.bin (fault_tool) ended with exit code 3"},
      {"segv", "convert.bin (fault_tool) ended with signal 11"},
      {"hang", "convert.bin (fault_tool) was ended after 2 s (\"Limits\"/\"Tool_timeout\")"},
      {"empty", "f300_uni.exe ended with exit code 1"},
      {"truncated", "scene.exr"},
      {"garbage", "scene.exr"},
      {"flood", "f300_uni.exe ended with exit code 1"},
      {"complain", "ended with exit code 2: ERROR 7: no image data in this file"},
      {"dot", "the reader made a picture of 1 x 1 pixel"},
  };
  for (const auto& [fault, reason] : reasons) {
    SCOPED_TRACE(fault);
    fs::remove_all(dir_.file("out"));
    setenv("PICTAVO_FAULT", fault.c_str(), 1);
    WriteJob({exr, jpg}, {{"Tool_timeout", 2}});
    EXPECT_EQ(Run(), 1) << log_;
    ExpectPromisesKept(2, 1);
    EXPECT_NE(log_.find("Error: Could not read file scene.exr\n      "), std::string::npos) << log_;
    EXPECT_NE(log_.find(reason), std::string::npos) << log_;
    EXPECT_LT(seconds_, 30.0) << "a tool fault held the job up";
  }
  // Missing tool: the same, without the link.
  engine_ = FakeInstall(dir_.path() / "install-missing", false);
  fs::remove_all(dir_.file("out"));
  WriteJob({exr, jpg});
  EXPECT_EQ(Run(), 1) << log_;
  ExpectPromisesKept(2, 1);
  EXPECT_NE(log_.find("tool \"convert.bin\" is missing: install imagemagick"), std::string::npos)
      << log_;
}

TEST_F(FaultTest, StopEndsAHungToolAndTheJob) {
  const std::string exr = dir_.file("in/scene.exr");
  fs::create_directories(dir_.file("in"));
  std::ofstream(exr, std::ios::binary) << "v/1\x01 not really OpenEXR";
  RememberSources({exr});
  engine_ = FakeInstall(dir_.path() / "install-fault", true);
  setenv("PICTAVO_FAULT", "hang", 1);
  WriteJob({exr});  // the default time-out (minutes) is not what ends it here
  const std::string out = dir_.file("engine.out");
  pid_t pid = fork();
  if (pid == 0) {
    const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, 1), dup2(fd, 2);
    execl(engine_.c_str(), engine_.c_str(), "12", dir_.file("job.cfg").c_str(), nullptr);
    _exit(127);
  }
  ASSERT_GT(pid, 0);
  for (int i = 0; i < 250 && platform::ReadFileBytes(out).value_or("").find("File 1 of 1") ==
                                 std::string::npos;
       ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const auto start = std::chrono::steady_clock::now();
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 10.0);
  log_ = platform::ReadFileBytes(out).value_or("");
  EXPECT_NE(log_.find("The conversion process was terminated by user."), std::string::npos) << log_;
  ExpectPromisesKept(1, 0, true);
}

// SIGTERM (`kill`, a shutdown) and SIGHUP (a closed terminal) stop the job as the Stop button
// does: the hung tool and its own child end within a second, the scratch goes, the log says the
// job was stopped, and the engine ends.
TEST_F(FaultTest, StopSignalsEndEveryToolAndTheJob) {
  const std::string exr = dir_.file("in/scene.exr");
  fs::create_directories(dir_.file("in"));
  std::ofstream(exr, std::ios::binary) << "v/1\x01 not really OpenEXR";
  RememberSources({exr});
  engine_ = FakeInstall(dir_.path() / "install-fault", true);
  setenv("PICTAVO_FAULT", "hang", 1);
  setenv("PICTAVO_FAULT_PIDS", dir_.file("tool.pids").c_str(), 1);
  for (const int sig : {SIGTERM, SIGHUP}) {
    SCOPED_TRACE(strsignal(sig));
    fs::remove(dir_.file("tool.pids"));
    WriteJob({exr});  // the default time-out (minutes) is not what ends it here
    const pid_t engine = Start({engine_, "12", dir_.file("job.cfg")});
    ASSERT_GT(engine, 0);
    pid_t tool = 0, child = 0;
    ASSERT_TRUE(HungToolPids(tool, child))
        << platform::ReadFileBytes(dir_.file("engine.out")).value_or("");
    const auto start = std::chrono::steady_clock::now();
    kill(engine, sig);
    const double tools_ended = SecondsUntilEnded({tool, child}, 30.0);
    int status = 0;
    waitpid(engine, &status, 0);
    const double engine_ended =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // About half a second (the runner's poll); the margin is for a loaded machine.
    EXPECT_LT(tools_ended, 5.0) << "the tool outlived the stop";
    EXPECT_LT(engine_ended, 15.0);
    std::printf("[ figures  ] %s: tools ended %.3f s after it, the engine %.3f s after it\n",
                strsignal(sig), tools_ended, engine_ended);
    ASSERT_TRUE(WIFEXITED(status)) << "the first signal ended the engine at once";
    EXPECT_EQ(WEXITSTATUS(status), 1);
    log_ = platform::ReadFileBytes(dir_.file("engine.out")).value_or("");
    EXPECT_NE(log_.find("The conversion process was terminated by user."), std::string::npos)
        << log_;
    ExpectPromisesKept(1, 0, true);
    EXPECT_FALSE(fs::exists(dir_.file("job.cfg"))) << "the job files go as the window closes";
  }
}

// SIGKILL leaves no chance to clean up: the tools still end with the engine (they run under
// the guard), and the scratch it left is removed by the next job over the same temp folder.
TEST_F(FaultTest, KilledEngineTakesItsToolsAlongAndTheNextJobItsScratch) {
  const std::string exr = dir_.file("in/scene.exr"), jpg = dir_.file("in/photo.jpg");
  fs::create_directories(dir_.file("in"));
  std::ofstream(exr, std::ios::binary) << "v/1\x01 not really OpenEXR";
  MakePicture(jpg, 16, 12, 0x336699);
  RememberSources({exr, jpg});
  engine_ = FakeInstall(dir_.path() / "install-fault", true);
  setenv("PICTAVO_FAULT", "hang", 1);
  setenv("PICTAVO_FAULT_PIDS", dir_.file("tool.pids").c_str(), 1);
  WriteJob({exr});
  const pid_t engine = Start({engine_, "12", dir_.file("job.cfg")});
  ASSERT_GT(engine, 0);
  pid_t tool = 0, child = 0;
  ASSERT_TRUE(HungToolPids(tool, child));
  kill(engine, SIGKILL);
  waitpid(engine, nullptr, 0);
  const double ended = SecondsUntilEnded({tool, child}, 30.0);
  EXPECT_LT(ended, 5.0) << "a tool outlived its killed engine";
  std::printf("[ figures  ] SIGKILL: tools ended %.3f s after the engine\n", ended);
  const std::vector<std::string> left = TempEntries();
  ASSERT_EQ(left.size(), 1u) << ::testing::PrintToString(left);
  EXPECT_EQ(left[0].rfind("job-" + std::to_string(engine) + "-", 0), 0u) << left[0];

  unsetenv("PICTAVO_FAULT");
  unsetenv("PICTAVO_FAULT_PIDS");
  WriteJob({jpg});
  EXPECT_EQ(Run(), 0) << log_;
  ExpectPromisesKept(1, 1);
}

// Ctrl-C reaches `pictavo convert`, not the engine in its own process group: the front end
// passes it on, and the engine stops as it would have stopped itself (its log says so, which a
// killed engine's could not).
TEST_F(FaultTest, ConvertPassesTheStopOnToItsEngine) {
  if (!fs::exists(fs::path(testing::BuildDir()) / "pictavo"))
    GTEST_SKIP() << "build/pictavo is not built";
  const std::string exr = dir_.file("in/scene.exr");
  fs::create_directories(dir_.file("in"));
  std::ofstream(exr, std::ios::binary) << "v/1\x01 not really OpenEXR";
  RememberSources({exr});
  FakeInstall(dir_.path() / "install-fault", true);
  setenv("PICTAVO_FAULT", "hang", 1);
  setenv("PICTAVO_FAULT_PIDS", dir_.file("tool.pids").c_str(), 1);
  const pid_t front =
      Start({(dir_.path() / "install-fault" / "pictavo").string(), "convert", exr, "--to", "png",
             "--output", dir_.file("out"), "--set", "Main/Temp_folder=" + dir_.file("temp")});
  ASSERT_GT(front, 0);
  pid_t tool = 0, child = 0;
  ASSERT_TRUE(HungToolPids(tool, child))
      << platform::ReadFileBytes(dir_.file("engine.out")).value_or("");
  const auto start = std::chrono::steady_clock::now();
  kill(front, SIGINT);
  const double tools_ended = SecondsUntilEnded({tool, child}, 30.0);
  int status = 0;
  waitpid(front, &status, 0);
  const double front_ended =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_LT(tools_ended, 5.0);
  EXPECT_LT(front_ended, 15.0);
  std::printf(
      "[ figures  ] Ctrl-C to pictavo convert: tools ended %.3f s after it, the front "
      "end %.3f s after it\n",
      tools_ended, front_ended);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  log_ = platform::ReadFileBytes(dir_.file("engine.out")).value_or("");
  EXPECT_NE(log_.find("The conversion process was terminated by user."), std::string::npos) << log_;
  EXPECT_NE(log_.find("pictavo convert: stopped"), std::string::npos) << log_;
  ExpectPromisesKept(1, 0, true);  // the front end's job files and the engine's scratch are gone
}

// Empty, cut and damaged files of every format the engine reads itself, a lying extension, a
// decompression bomb: each fails alone (or converts), and the count stays truthful.
TEST_F(FaultTest, BadInputsFailAlone) {
  std::vector<std::string> files;
  const std::vector<std::string> exts = {"jpg", "png", "gif",  "bmp", "tif", "tga", "pcx",
                                         "ico", "psd", "webp", "jp2", "qoi", "ppm"};
  fs::create_directories(dir_.file("in"));
  int planted_failures = 0;
  for (const std::string& ext : exts) {
    const std::string good = dir_.file("in/good." + ext);
    imaging::TIEBitmap bmp;
    ASSERT_TRUE(bmp.Allocate(40, 30, imaging::TIEPixelFormat::ie24RGB).ok());
    bmp.Fill(0x804020);
    imaging::TImageEnIO io(&bmp);
    if (!io.SaveToFile(good).ok()) continue;  // no in-process writer: covered by the others
    const std::string bytes = platform::ReadFileBytes(good).value_or("");
    fs::remove(good);
    std::ofstream(dir_.file("in/empty-" + ext + "." + ext), std::ios::binary);
    std::ofstream(dir_.file("in/cut-" + ext + "." + ext), std::ios::binary)
        << bytes.substr(0, bytes.size() / 3);
    std::string damaged = bytes;
    for (size_t i = damaged.size() / 4; i < damaged.size(); i += 7) damaged[i] ^= 0x5A;
    std::ofstream(dir_.file("in/damaged-" + ext + "." + ext), std::ios::binary) << damaged;
    files.insert(files.end(),
                 {dir_.file("in/empty-" + ext + "." + ext), dir_.file("in/cut-" + ext + "." + ext),
                  dir_.file("in/damaged-" + ext + "." + ext)});
    ++planted_failures;  // the empty one fails for sure
  }
  MakePicture(dir_.file("in/really-a-png.jpg"), 10, 10, 0);
  {
    // MakePicture wrote a JPEG; give it PNG bytes instead, under the .jpg name.
    MakePicture(dir_.file("in/tmp.png"), 10, 10, 0);
    fs::rename(dir_.file("in/tmp.png"), dir_.file("in/really-a-png.jpg"));
  }
  std::ofstream(dir_.file("in/bomb.png"), std::ios::binary) << BombPng(20000);
  files.insert(files.end(), {dir_.file("in/really-a-png.jpg"), dir_.file("in/bomb.png")});
  RememberSources(files);
  WriteJob(files);
  EXPECT_EQ(Run(), 1);
  ExpectPromisesKept(static_cast<int>(files.size()), -1);
  EXPECT_GE(static_cast<int>(Count(log_, "   Error")), planted_failures + 1);
  EXPECT_TRUE(Loads(dir_.file("out/really-a-png.png"))) << log_;
  EXPECT_NE(log_.find("bomb.png: 20000 x 20000 pixels is above the limit of 268 megapixels"),
            std::string::npos)
      << log_;
  EXPECT_FALSE(fs::exists(dir_.file("out/bomb.png")));
}

TEST_F(FaultTest, HostileFileNamesAreData) {
  const std::vector<std::string> names = {
      "with blank.jpg",   "quote\"d.jpg",      "single'q.jpg",         "dollar$HOME.jpg",
      "back`id`tick.jpg", "semi;colon.jpg",    "pipe|d.jpg",           "amp&er.jpg",
      "new\nline.jpg",    "-leading-dash.jpg", "bad\xff\xfe-utf8.jpg", "percent%PATH%.jpg",
      "star*.jpg"};
  std::vector<std::string> files;
  for (const std::string& n : names) {
    files.push_back(dir_.file("in/" + n));
    MakePicture(files.back(), 12, 10, 0x00FF00);
  }
  RememberSources(files);
  WriteJob({dir_.file("in")});  // a name with a line break cannot stand in a list file
  EXPECT_EQ(Run(), 0) << log_;
  ExpectPromisesKept(static_cast<int>(names.size()), static_cast<int>(names.size()));
  for (const std::string& n : names)
    EXPECT_TRUE(Loads(dir_.file("out/" + n.substr(0, n.size() - 4) + ".png"))) << n;
}

TEST_F(FaultTest, HostileArchivesStayInTheirFolder) {
  MakePicture(dir_.file("src/a.jpg"), 10, 10, 0);
  const std::string jpg = platform::ReadFileBytes(dir_.file("src/a.jpg")).value_or("");
  const std::string outside =
      (fs::temp_directory_path() / ("pictavo-fault-abs-" + std::to_string(getpid()) + ".jpg"))
          .string();
  fs::create_directories(dir_.file("box"));
  const std::string zip = dir_.file("box/evil.zip");
  std::ofstream(zip, std::ios::binary)
      << Zip({{"ok.jpg", jpg},
              {"../escaped.jpg", jpg},
              {"../../escaped2.jpg", jpg},
              {outside, jpg},
              {"zeros.jpg", std::string(64u << 20, '\0')}});  // 64 MiB in about 64 KiB
  RememberSources({zip});
  settings_.main.file_mask = "jpg";
  WriteJob({zip});
  Run();
  EXPECT_FALSE(fs::exists(dir_.file("box/../escaped.jpg")));
  EXPECT_FALSE(fs::exists(dir_.file("escaped2.jpg")));
  EXPECT_FALSE(fs::exists(outside));
  EXPECT_FALSE(fs::exists(dir_.file("box/escaped.jpg")));
  fs::remove(outside);
  EXPECT_TRUE(Loads(dir_.file("out/ok.png"))) << log_;
  ExpectPromisesKept(-1, -1);

  // Under a cap of 32 MB the same archive is refused from its listing: nothing is unpacked, and
  // the archive itself fails as one file.
  fs::remove_all(dir_.file("out"));
  WriteJob({zip}, {{"Max_unpacked_mb", 32}});
  EXPECT_EQ(Run(), 1) << log_;
  ExpectPromisesKept(1, 0);
  EXPECT_NE(log_.find("Could not read file evil.zip"), std::string::npos) << log_;
}

// Archive members that are links (out of the folder, to its parent, to an absolute path) and
// thousands of entries: nothing outside is touched or read through a link, the expansion goes.
TEST_F(FaultTest, ArchivesWithLinksAndThousandsOfEntries) {
  MakePicture(dir_.file("outside/secret.jpg"), 6, 6, 0xFF0000);
  MakePicture(dir_.file("pack/real.jpg"), 10, 10, 0x0000FF);
  RememberSources({dir_.file("outside/secret.jpg")});
  fs::create_symlink("../outside", dir_.file("pack/out"));
  fs::create_symlink("..", dir_.file("pack/up"));
  fs::create_symlink(dir_.file("outside/secret.jpg"), dir_.file("pack/abs.jpg"));
  for (int i = 0; i < 5000; ++i)
    std::ofstream(dir_.file("pack/n" + std::to_string(i) + ".txt")) << i;
  fs::create_directories(dir_.file("box"));
  const std::string tar = dir_.file("box/links.tar");
  ASSERT_EQ(std::system(("tar -cf '" + tar + "' -C '" + dir_.file("pack") + "' .").c_str()), 0);
  fs::remove_all(dir_.file("pack"));
  RememberSources({tar});
  settings_.main.file_mask = "jpg";
  WriteJob({tar});
  Run();
  EXPECT_LT(seconds_, 60.0) << log_;
  EXPECT_TRUE(Loads(dir_.file("out/real.png"))) << log_;
  EXPECT_FALSE(fs::exists(dir_.file("out/secret.png"))) << "a link was followed out\n" << log_;
  ExpectPromisesKept(-1, -1);
}

// A PDF whose page is 200000 points square: 833333 pixels a side at 300 dpi. It is refused from
// its page size, before the interpreter starts drawing it, and the job goes on.
TEST_F(FaultTest, HugePagePdfIsRefusedFromItsPageSize) {
  const std::string body = "q 0 0 1 rg 0 0 100 100 re f Q";
  std::string pdf = "%PDF-1.4\n";
  std::vector<size_t> offsets;
  auto object = [&](const std::string& text) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(offsets.size()) + " 0 obj\n" + text + "\nendobj\n";
  };
  object("<< /Type /Catalog /Pages 2 0 R >>");
  object("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  object("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200000 200000] /Contents 4 0 R >>");
  object("<< /Length " + std::to_string(body.size()) + " >>\nstream\n" + body + "\nendstream");
  const size_t xref = pdf.size();
  pdf += "xref\n0 5\n0000000000 65535 f \n";
  for (size_t at : offsets) {
    char line[24];
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", at);
    pdf += line;
  }
  pdf += "trailer\n<< /Size 5 /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
  const std::string huge = dir_.file("in/huge.pdf"), jpg = dir_.file("in/small.jpg");
  fs::create_directories(dir_.file("in"));
  std::ofstream(huge, std::ios::binary) << pdf;
  MakePicture(jpg, 8, 8, 0);
  RememberSources({huge, jpg});
  WriteJob({huge, jpg}, {{"Tool_timeout", 60}});
  EXPECT_EQ(Run(), 1) << log_;
  EXPECT_LT(seconds_, 30.0) << log_;
  ExpectPromisesKept(2, 1);
  EXPECT_NE(log_.find("huge.pdf: a page of 200000 x 200000 points is 833333 x 833333 pixels at "
                      "300 dpi, above the limit of 268 megapixels"),
            std::string::npos)
      << log_;
}

// Names near the limits: a 250-byte file name (255 is the most a name may have) deep in a path
// of over 3000 bytes. Scratch names beside the result must still fit.
// The caps on pictures hold for what actions make, not only for what is decoded. A source above
// the memory cap fails alone, with the setting named; an action that would make a picture above
// a cap fails as any action does (the list goes on, the file is saved as the other actions left
// it), with the limit named under its line.
TEST_F(FaultTest, PictureCapsHoldForDecodesAndActions) {
  const std::string big = dir_.file("in/big.jpg"), small = dir_.file("in/small.jpg");
  MakePicture(big, 1200, 1000, 0x336699);
  MakePicture(small, 64, 48, 0x996633);
  RememberSources({big, small});

  std::ofstream(dir_.file("enlarge.act")) << "resize(20000;20000;0;0;3;0)\nmirror(1)\n";
  WriteJob({small}, {{"Max_megapixels", 100}});
  EXPECT_EQ(Run("12", dir_.file("enlarge.act")), 0) << log_;
  ExpectPromisesKept(1, 1);
  const size_t failed = log_.find("Resize...Fail");
  const size_t why = log_.find(
      "       20000 x 20000 pixels is above the limit of 100 megapixels "
      "(\"Limits\"/\"Max_megapixels\")");
  ASSERT_NE(why, std::string::npos) << log_;
  EXPECT_LT(failed, why) << log_;
  EXPECT_LT(why, log_.find("Mirror...Done")) << log_;
  imaging::TIEBitmap result;
  imaging::TImageEnIO io(&result);
  ASSERT_TRUE(io.LoadFromFile(dir_.file("out/small.png")).ok());
  EXPECT_EQ(result.Width(), 64);

  fs::remove_all(dir_.file("out"));
  WriteJob({big, small}, {{"Max_memory_mb", 2}});
  EXPECT_EQ(Run(), 1) << log_;
  ExpectPromisesKept(2, 1);
  EXPECT_NE(log_.find("Could not read file big.jpg\n      1200 x 1000 pixels take 4 MB, above the "
                      "limit of 2 MB (\"Limits\"/\"Max_memory_mb\")"),
            std::string::npos)
      << log_;
  EXPECT_TRUE(Loads(dir_.file("out/small.png"))) << log_;

  // The memory cap holds for what an action makes as well.
  fs::remove_all(dir_.file("out"));
  std::ofstream(dir_.file("enlarge2.act")) << "resize(1000;1000;0;0;3;0)\n";
  WriteJob({small}, {{"Max_memory_mb", 2}});
  EXPECT_EQ(Run("12", dir_.file("enlarge2.act")), 0) << log_;
  ExpectPromisesKept(1, 1);
  EXPECT_NE(log_.find("1000 x 1000 pixels take 3 MB, above the limit of 2 MB"), std::string::npos)
      << log_;
}

TEST_F(FaultTest, VeryLongNamesAndPaths) {
  std::string deep = dir_.file("in");
  for (int i = 0; i < 12; ++i) deep += "/" + std::string(240, static_cast<char>('a' + i));
  const std::string name = std::string(246, 'n') + ".jpg";
  const std::string source = deep + "/" + name;
  MakePicture(source, 12, 9, 0x336699);
  RememberSources({source});
  settings_.main.dest_path = dir_.file("out");
  WriteJob({source});
  EXPECT_EQ(Run(), 0) << log_;
  ExpectPromisesKept(1, 1);
  EXPECT_TRUE(Loads(dir_.file("out/" + std::string(246, 'n') + ".png"))) << log_;
}

// Disks that fill up: results that do not fit fail one by one, none is left half-written or
// under a scratch name, and the summary says how many did fit.
TEST_F(FaultTest, FullDisksFailTheirFilesAlone) {
  std::vector<std::string> noise;
  for (int i = 0; i < 4; ++i) {
    noise.push_back(dir_.file("in/noise" + std::to_string(i) + ".bmp"));
    MakeNoise(noise.back(), 320, 320, static_cast<unsigned>(i + 1));  // ~300 KB as PNG
  }
  RememberSources(noise);
  {
    SmallDisk dest(dir_.file("out"), 512u << 10);  // room for one result
    if (!dest.mounted()) GTEST_SKIP() << "mounting a small tmpfs needs root: " << dest.why();
    WriteJob(noise);
    EXPECT_EQ(Run(), 1) << log_;
    ExpectPromisesKept(4, 1);
  }
  // A full temp folder: the PNM goes through the reader chain, whose scratch picture (300 KB)
  // does not fit; the small BMP beside it needs no scratch space and converts.
  const std::string pnm = dir_.file("in/noise.pnm"), small = dir_.file("in/small.bmp");
  {
    imaging::TIEBitmap bmp;
    MakeNoise(dir_.file("in/noise-src.ppm"), 320, 320, 9);
    fs::rename(dir_.file("in/noise-src.ppm"), pnm);
  }
  MakePicture(small, 16, 16, 0x808080);
  RememberSources({pnm, small});
  fs::remove_all(dir_.file("out"));
  SmallDisk temp(dir_.file("temp"), 64u << 10);
  ASSERT_TRUE(temp.mounted()) << temp.why();
  settings_.main.cpu_priority = 1;  // one worker: the two files do not share the full disk
  WriteJob({pnm, small});
  EXPECT_EQ(Run(), 1) << log_;
  ExpectPromisesKept(2, 1);
  EXPECT_TRUE(Loads(dir_.file("out/small.png"))) << log_;
}

// Read-only mounts refuse writes to root as well, so these hold wherever the test can mount.
TEST_F(FaultTest, ReadOnlyAndMissingFolders) {
  const std::string jpg = dir_.file("in/a.jpg"), exr = dir_.file("in/b.exr");
  MakePicture(jpg, 40, 30, 0x224466);
  std::ofstream(exr, std::ios::binary) << "v/1\x01 not really OpenEXR";
  RememberSources({jpg, exr});
  {
    SmallDisk dest(dir_.file("out"), 1u << 20, true);
    if (!dest.mounted()) GTEST_SKIP() << "mounting a read-only tmpfs needs root: " << dest.why();
    WriteJob({jpg});
    EXPECT_EQ(Run(), 1) << log_;
    ExpectPromisesKept(1, 0);
  }
  // A read-only temp folder: the engine warns, and the job still ends with a true count.
  fs::remove_all(dir_.file("out"));
  {
    SmallDisk temp(dir_.file("temp"), 1u << 20, true);
    ASSERT_TRUE(temp.mounted()) << temp.why();
    WriteJob({jpg, exr});
    (void)Run();
    EXPECT_NE(log_.find(settings_.main.temp_folder), std::string::npos) << log_;
    ExpectPromisesKept(2, -1);
  }
  // A temp folder that does not exist yet, several levels down: made, used, emptied.
  fs::remove_all(dir_.file("out"));
  settings_.main.temp_folder = dir_.file("fresh/not/yet/there");
  WriteJob({jpg});
  EXPECT_EQ(Run(), 0) << log_;
  ExpectPromisesKept(1, 1);
  EXPECT_TRUE(fs::is_directory(settings_.main.temp_folder));
  EXPECT_TRUE(fs::is_empty(settings_.main.temp_folder));
}

TEST_F(FaultTest, BrokenFoldersEndTheJobCleanly) {
  const std::string jpg = dir_.file("in/a.jpg");
  MakePicture(jpg, 8, 8, 0);
  RememberSources({jpg});
  // A file where the temp folder should be: the job ends at once, with its reason.
  std::ofstream(dir_.file("temp-file")) << "x";
  settings_.main.temp_folder = dir_.file("temp-file");
  WriteJob({jpg});
  EXPECT_EQ(Run(), 1);
  EXPECT_NE(log_.find("Error! Unable to create the temp folder: " + dir_.file("temp-file")),
            std::string::npos)
      << log_;
  EXPECT_EQ(platform::ReadFileBytes(dir_.file("temp-file")).value_or(""), "x");
  // A destination that cannot be created (under a file): the file fails, the count says so.
  settings_.main.temp_folder = dir_.file("temp");
  std::ofstream(dir_.file("blocker")) << "x";
  settings_.main.dest_path = dir_.file("blocker/out");
  WriteJob({jpg});
  EXPECT_EQ(Run(), 1);
  ExpectPromisesKept(1, 0);
  // A read-only destination, where permissions hold (not for root).
  if (geteuid() != 0) {
    settings_.main.dest_path = dir_.file("out");
    fs::create_directories(dir_.file("out"));
    chmod(dir_.file("out").c_str(), 0555);
    WriteJob({jpg});
    EXPECT_EQ(Run(), 1);
    chmod(dir_.file("out").c_str(), 0755);
    ExpectPromisesKept(1, 0);
  }
}

TEST_F(FaultTest, LongListAndRandomJobFiles) {
  const std::string jpg = dir_.file("in/a.jpg");
  MakePicture(jpg, 8, 8, 0);
  RememberSources({jpg});
  // A list of 100,000 entries, all but one missing: each fails alone, in well under a
  // millisecond (about 25 s for the lot on two cores).
  std::vector<std::string> entries = {jpg};
  for (int i = 0; i < 99999; ++i) entries.push_back(dir_.file("gone/missing" + std::to_string(i)));
  WriteJob(entries);
  EXPECT_EQ(Run(), 1);
  ExpectPromisesKept(100000, 1);
  EXPECT_LT(seconds_, 240.0);

  // Settings, actions and language files of random bytes: no crash, a summary or a clean stop.
  engine_ = FakeInstall(dir_.path() / "install-fault", true);
  for (unsigned seed = 1; seed <= 3; ++seed) {
    SCOPED_TRACE(seed);
    std::ofstream(dir_.file("noise.act"), std::ios::binary) << RandomBytes(4096, seed);
    WriteJob({jpg});
    fs::remove_all(dir_.file("out"));
    const int rc = Run("12", dir_.file("noise.act"));
    EXPECT_TRUE(rc == 0 || rc == 1) << rc << log_;
    ExpectPromisesKept(1, -1);

    const std::string lng = fs::path(engine_).parent_path() / "Languages/noise.lng";
    fs::create_directories(fs::path(lng).parent_path());
    std::ofstream(lng, std::ios::binary) << RandomBytes(8192, seed + 10);
    settings_.main.language = "noise";
    WriteJob({jpg});
    fs::remove_all(dir_.file("out"));
    EXPECT_EQ(Run(), 0) << log_;
    settings_.main.language = "English";

    std::ofstream(dir_.file("job.cfg"), std::ios::binary) << RandomBytes(16384, seed + 20);
    const int cfg_rc = Run();
    EXPECT_TRUE(cfg_rc == 0 || cfg_rc == 1) << cfg_rc << log_;
    for (const auto& [path, bytes] : sources_)
      EXPECT_EQ(platform::ReadFileBytes(path).value_or("<gone>"), bytes) << path;
  }
}

// A settings path that was a folder ended the engine with std::bad_alloc (exit 134); a list or
// language file that was a FIFO held it for good. A job file that is there but is no regular
// file, or is too large, now gets one line naming it and the reason, and the job goes on
// without it.
TEST_F(FaultTest, JobFilesThatAreNoRegularFilesAreRefused) {
  const std::string jpg = dir_.file("in/a.jpg");
  MakePicture(jpg, 8, 8, 0);
  RememberSources({jpg});
  engine_ = FakeInstall(dir_.path() / "install-files", true);
  // With the default settings the temp folder is the user's cache: keep it in the test folder.
  struct CacheHere {
    explicit CacheHere(const std::string& folder) {
      if (const char* old = std::getenv("XDG_CACHE_HOME")) saved = old;
      setenv("XDG_CACHE_HOME", folder.c_str(), 1);
    }
    ~CacheHere() {
      if (saved)
        setenv("XDG_CACHE_HOME", saved->c_str(), 1);
      else
        unsetenv("XDG_CACHE_HOME");
    }
    std::optional<std::string> saved;
  } cache_here(dir_.file("cache"));
  const auto lines_with = [this](const std::string& what) { return Count(log_, what); };

  fs::create_directories(dir_.file("job.cfg"));
  const int rc = Run();
  EXPECT_TRUE(rc == 0 || rc == 1) << rc << log_;
  EXPECT_EQ(lines_with("Warning: cannot read " + dir_.file("job.cfg") +
                       ": it is a folder; the job runs with the default settings\n"),
            1u)
      << log_;
  ExpectPromisesKept(0, 0);
  fs::remove(dir_.file("job.cfg"));

  const fs::path languages = fs::path(engine_).parent_path() / "Languages";
  fs::create_directories(languages);
  ASSERT_EQ(::mkfifo(dir_.file("fifo.lst").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo((languages / "fifo.lng").c_str(), 0600), 0);
  settings_.main.use_file_list = dir_.file("fifo.lst");
  settings_.main.language = "fifo";
  WriteJob({jpg});
  EXPECT_EQ(Run(), 0) << log_;
  EXPECT_LT(seconds_, 30.0);
  EXPECT_EQ(lines_with("Warning: cannot read " + dir_.file("fifo.lst") +
                       ": it is a pipe (FIFO), not a file; the job has no files\n"),
            1u)
      << log_;
  EXPECT_EQ(lines_with("fifo.lng: it is a pipe (FIFO), not a file; the English texts are used\n"),
            1u)
      << log_;
  ExpectPromisesKept(0, 0);

  settings_.main.use_file_list = dir_.file("job.lst");
  settings_.main.language = "English";
  const std::string big = dir_.file("big.act");
  std::ofstream(big) << "invert\n";
  fs::resize_file(big, 17u << 20);  // sparse: takes no disk
  fs::create_directories(dir_.file("folder.act"));
  for (const auto& [act, reason] : std::vector<std::pair<std::string, std::string>>{
           {big, "it is larger than 16 MB"}, {dir_.file("folder.act"), "it is a folder"}}) {
    WriteJob({jpg});
    fs::remove_all(dir_.file("out"));
    EXPECT_EQ(Run("12", act), 0) << log_;
    EXPECT_EQ(lines_with("Warning: cannot read " + act + ": " + reason +
                         "; no editing actions are applied\n"),
              1u)
        << log_;
    ExpectPromisesKept(1, 1);
  }
}

}  // namespace
}  // namespace pictavo
