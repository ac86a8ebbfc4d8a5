#include "platform/fs.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace pictavo::platform {

std::string IncludeTrailingDelim(std::string_view path) {
  std::string out(path);
  if (!out.empty() && out.back() != kPathDelim) out += kPathDelim;
  return out;
}

std::optional<std::string> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return std::nullopt;
  std::streamoff size = in.tellg();
  if (size < 0) {  // not seekable (a pipe): read it as a stream
    in.clear();
    size = 0;
  }
  in.seekg(0);
  // One allocation of the known size; a file that grows meanwhile is read to its new end.
  std::string bytes(static_cast<size_t>(size), '\0');
  in.read(bytes.data(), size);
  if (in.bad()) return std::nullopt;
  bytes.resize(static_cast<size_t>(in.gcount()));
  if (in.peek() != std::char_traits<char>::eof()) {
    std::ostringstream rest;
    rest << in.rdbuf();
    bytes += std::move(rest).str();
  }
  return bytes;
}

std::optional<std::string> ReadFilePrefix(const std::string& path, size_t max_bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes(max_bytes, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(max_bytes));
  if (in.bad()) return std::nullopt;
  bytes.resize(static_cast<size_t>(in.gcount()));
  return bytes;
}

Status WriteFileAtomic(const std::string& path, std::string_view bytes, bool flush_to_disk) {
  static std::atomic<unsigned> sequence{0};
  // Beside the target, hidden and short: a name near the 255-byte limit must still have room.
  const size_t slash = path.rfind(kPathDelim);
  std::string scratch = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) +
                        ".rcp" + std::to_string(getpid()) + "_" +
                        std::to_string(sequence.fetch_add(1)) + ".part";
  int fd = ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return Status::Error("cannot create " + scratch + ": " + std::strerror(errno));
  const char* p = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      int err = errno;
      ::close(fd);
      ::unlink(scratch.c_str());
      return Status::Error("cannot write " + scratch + ": " + std::strerror(err));
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  if ((flush_to_disk && ::fsync(fd) != 0) || ::close(fd) != 0) {
    int err = errno;
    ::unlink(scratch.c_str());
    return Status::Error("cannot flush " + scratch + ": " + std::strerror(err));
  }
  if (::rename(scratch.c_str(), path.c_str()) != 0) {
    int err = errno;
    ::unlink(scratch.c_str());
    return Status::Error("cannot rename " + scratch + " to " + path + ": " + std::strerror(err));
  }
  return Status::OK();
}

ExclusiveCreate CreateFileExclusive(const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd >= 0) {
    ::close(fd);
    return ExclusiveCreate::kCreated;
  }
  return errno == EEXIST ? ExclusiveCreate::kAlreadyExists : ExclusiveCreate::kFailed;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool DirectoryExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string ExecutableFolder() {
  // The program does not move while it runs; every worker asks for every file.
  static const std::string folder = [] {
    std::error_code ec;
    auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec) return IncludeTrailingDelim(std::filesystem::current_path().string());
    return IncludeTrailingDelim(exe.parent_path().string());
  }();
  return folder;
}

MappedFile::~MappedFile() {
  if (map_) munmap(map_, size_);
}

bool MappedFile::Open(const std::string& path, bool whole) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    struct stat st {};
    const bool stated = fstat(fd, &st) == 0;
    if (stated && S_ISREG(st.st_mode) && st.st_size > 0) {
      void* map = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ,
                       MAP_PRIVATE | (whole ? MAP_POPULATE : 0), fd, 0);
      if (map != MAP_FAILED) map_ = map, size_ = static_cast<size_t>(st.st_size);
    }
    close(fd);
    if (map_) return true;
    if (stated && S_ISDIR(st.st_mode)) return false;  // a folder has no bytes to read
  }
  copy_ = ReadFileBytes(path);
  return copy_.has_value();
}

const uint8_t* MappedFile::data() const {
  return map_ ? static_cast<const uint8_t*>(map_) : reinterpret_cast<const uint8_t*>(copy_->data());
}

size_t MappedFile::size() const {
  return map_ ? size_ : copy_->size();
}

}  // namespace pictavo::platform
