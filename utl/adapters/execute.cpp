// Running an adapter's plan: the adapter is itself a tool process, so the programs it starts
// share its process group and end with it when the engine stops the tool.
#include <fcntl.h>
#include <glob.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/bytes.h"  // header-only here: the adapters link no engine library
#include "utl/adapters/plan.h"

extern char** environ;

namespace pictavo::utl {

namespace fs = std::filesystem;

namespace {

int RunProgram(const Step& step) {
  std::vector<std::string> env_strings;
  for (char** e = environ; *e != nullptr; ++e) {
    std::string entry = *e;
    std::string name = entry.substr(0, entry.find('='));
    bool replaced = std::any_of(step.env.begin(), step.env.end(), [&](const std::string& add) {
      return add.compare(0, name.size() + 1, name + "=") == 0;
    });
    if (!replaced) env_strings.push_back(entry);
  }
  env_strings.insert(env_strings.end(), step.env.begin(), step.env.end());
  std::vector<char*> envp;
  for (std::string& e : env_strings) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<char*> argv;
  for (const std::string& a : step.argv) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!step.stdout_path.empty())
    posix_spawn_file_actions_addopen(&actions, 1, step.stdout_path.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid;
  int rc = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    std::fprintf(stderr, "adapter: cannot start %s: %s\n", argv[0], std::strerror(rc));
    return 127;
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

// GIMP brush, version 2: a 28-byte big-endian header, the name, then grey or RGBA pixels.
bool WriteGbr(const std::string& pam_path, const std::string& gbr_path, const std::string& name) {
  std::ifstream in(pam_path, std::ios::binary);
  std::string line;
  long width = 0, height = 0, depth = 0;
  if (!std::getline(in, line) || line != "P7") return false;
  while (std::getline(in, line) && line != "ENDHDR") {
    if (line.compare(0, 6, "WIDTH ") == 0) width = std::atol(line.c_str() + 6);
    if (line.compare(0, 7, "HEIGHT ") == 0) height = std::atol(line.c_str() + 7);
    if (line.compare(0, 6, "DEPTH ") == 0) depth = std::atol(line.c_str() + 6);
  }
  if (width <= 0 || height <= 0 || depth < 1 || depth > 4 || width > 65535 || height > 65535)
    return false;
  std::string pixels(static_cast<size_t>(width * height * depth), '\0');
  if (!in.read(pixels.data(), static_cast<std::streamsize>(pixels.size()))) return false;
  // Grey brushes stay one byte per pixel; anything with colour becomes RGBA.
  const bool grey = depth <= 2;
  std::string body;
  body.reserve(static_cast<size_t>(width * height * (grey ? 1 : 4)));
  for (long i = 0; i < width * height; ++i) {
    const unsigned char* px = reinterpret_cast<const unsigned char*>(pixels.data()) + i * depth;
    if (grey) {
      // GIMP grey brushes store coverage: 255 is full paint, so dark pixels paint.
      body += static_cast<char>(255 - px[0]);
    } else {
      body += static_cast<char>(px[0]);
      body += static_cast<char>(depth >= 3 ? px[1] : px[0]);
      body += static_cast<char>(depth >= 3 ? px[2] : px[0]);
      body += static_cast<char>(depth == 4 ? px[3] : depth == 2 ? px[1] : 255);
    }
  }
  using platform::StoreBe32;
  const std::string header = StoreBe32(static_cast<uint32_t>(28 + name.size() + 1)) + StoreBe32(2) +
                             StoreBe32(static_cast<uint32_t>(width)) +
                             StoreBe32(static_cast<uint32_t>(height)) + StoreBe32(grey ? 1 : 4) +
                             "GIMP" + StoreBe32(10);
  std::ofstream out(gbr_path, std::ios::binary | std::ios::trunc);
  out.write(header.data(), static_cast<std::streamsize>(header.size()));
  out.write(name.c_str(), static_cast<std::streamsize>(name.size() + 1));
  out.write(body.data(), static_cast<std::streamsize>(body.size()));
  return static_cast<bool>(out);
}

bool Flatten(const std::string& folder) {
  std::error_code ec;
  std::vector<fs::path> files;
  for (auto it = fs::recursive_directory_iterator(folder, ec); !ec && it != fs::end(it);
       it.increment(ec))
    if (it->is_regular_file() && it->path().parent_path() != fs::path(folder))
      files.push_back(it->path());
  for (const fs::path& f : files) fs::rename(f, fs::path(folder) / f.filename(), ec);
  for (auto& entry : fs::directory_iterator(folder, ec))
    if (entry.is_directory()) fs::remove_all(entry.path(), ec);
  return true;
}

}  // namespace

int Execute(const Plan& plan) {
  if (!plan.error.empty()) {
    std::fprintf(stderr, "%s\n", plan.error.c_str());
    return 2;
  }
  int result = 0;
  for (const Step& step : plan.steps) {
    std::error_code ec;
    switch (step.kind) {
      case Step::Kind::kRun: {
        int code = RunProgram(step);
        if (std::find(step.ok_codes.begin(), step.ok_codes.end(), code) == step.ok_codes.end())
          result = code == 0 ? 1 : code;
        break;
      }
      case Step::Kind::kRename:
        if (!fs::exists(step.argv[0])) {
          result = 1;
          break;
        }
        fs::rename(step.argv[0], step.argv[1], ec);
        if (ec) result = 1;
        break;
      case Step::Kind::kMakeDir:
        fs::create_directories(step.argv[0], ec);
        if (ec && !fs::is_directory(step.argv[0])) result = 1;
        break;
      case Step::Kind::kFlatten:
        if (!Flatten(step.argv[0])) result = 1;
        break;
      case Step::Kind::kWriteGbr:
        if (!WriteGbr(step.argv[0], step.argv[1], step.argv[2])) result = 1;
        break;
      case Step::Kind::kCheckUnpackedSize: {
        std::ifstream in(step.argv[0], std::ios::binary);
        const std::string listing((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
        const uint64_t limit_mb = std::strtoull(step.argv[1].c_str(), nullptr, 10);
        const uint64_t size = UnpackedSizeOfListing(listing);
        if (size / (1024 * 1024) >= limit_mb) {
          std::fprintf(stderr,
                       "7za.bin: the archive expands to %llu MB, above the limit of %llu MB "
                       "(\"Limits\"/\"Max_unpacked_mb\")\n",
                       static_cast<unsigned long long>(size / (1024 * 1024)),
                       static_cast<unsigned long long>(limit_mb));
          result = 3;
        }
        break;
      }
    }
    if (result != 0) break;
  }
  for (const std::string& s : plan.scratch) {
    std::error_code ec;
    if (s.find('*') == std::string::npos) {
      fs::remove_all(s, ec);
      continue;
    }
    glob_t g{};
    if (::glob(s.c_str(), 0, nullptr, &g) == 0)
      for (size_t i = 0; i < g.gl_pathc; ++i) fs::remove(g.gl_pathv[i], ec);
    ::globfree(&g);
  }
  return result;
}

}  // namespace pictavo::utl
