#include "platform/fs.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

namespace pictavo::platform {

std::string IncludeTrailingDelim(std::string_view path) {
  std::string out(path);
  if (!out.empty() && out.back() != kPathDelim) out += kPathDelim;
  return out;
}

std::optional<std::string> ReadFileBytes(const std::string& path) {
  // A folder opens as a stream whose end some file systems put at 2^63 - 1 (ext4's hashed
  // folders), which the allocation below would take at its word.
  if (DirectoryExists(path)) return std::nullopt;
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

namespace {

std::string SystemReason(int err) {
  std::string reason = std::strerror(err);
  if (!reason.empty() && reason[0] >= 'A' && reason[0] <= 'Z') reason[0] += 'a' - 'A';
  return reason;
}

std::string NotRegularReason(mode_t mode) {
  if (S_ISDIR(mode)) return "it is a folder";
  if (S_ISFIFO(mode)) return "it is a pipe (FIFO), not a file";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "it is a device, not a file";
  if (S_ISSOCK(mode)) return "it is a socket, not a file";
  return "it is not a regular file";
}

std::string TooLargeReason(size_t max_bytes) {
  constexpr size_t kMiB = size_t{1} << 20;
  return "it is larger than " + (max_bytes % kMiB == 0 ? std::to_string(max_bytes / kMiB) + " MB"
                                                       : std::to_string(max_bytes) + " bytes");
}

}  // namespace

std::optional<std::string> ReadRegularFile(const std::string& path, size_t max_bytes,
                                           std::string* why) {
  auto refuse = [why](std::string reason) -> std::optional<std::string> {
    if (why) *why = std::move(reason);
    return std::nullopt;
  };
  if (why) why->clear();
  // Looked at before opening: opening a FIFO waits for a writer, and opening some devices
  // does something (a tape rewinds).
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return refuse(SystemReason(errno));
  if (!S_ISREG(st.st_mode)) return refuse(NotRegularReason(st.st_mode));
  if (static_cast<uintmax_t>(st.st_size) > max_bytes) return refuse(TooLargeReason(max_bytes));
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return refuse(SystemReason(errno));
  // The name may have been given to something else between the two looks.
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    const std::string reason =
        S_ISREG(st.st_mode) ? SystemReason(errno) : NotRegularReason(st.st_mode);
    ::close(fd);
    return refuse(reason);
  }
  std::string bytes;
  bytes.reserve(std::min(static_cast<size_t>(st.st_size), max_bytes));
  char chunk[65536];
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int err = errno;
      ::close(fd);
      return refuse(SystemReason(err));
    }
    if (n == 0) break;
    // A file that grows while it is read is held to the same limit.
    if (bytes.size() + static_cast<size_t>(n) > max_bytes) {
      ::close(fd);
      return refuse(TooLargeReason(max_bytes));
    }
    bytes.append(chunk, static_cast<size_t>(n));
  }
  ::close(fd);
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

std::string ScratchBeside(const std::string& path) {
  static std::atomic<unsigned> sequence{0};
  // Hidden and short: a name near the 255-byte limit must still have room.
  const size_t slash = path.rfind(kPathDelim);
  return (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + ".rcp" +
         std::to_string(getpid()) + "_" + std::to_string(sequence.fetch_add(1)) + ".part";
}

int RemoveStaleScratch(const std::string& folder) {
  int removed = 0;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(folder, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    const std::string name = it->path().filename().string();
    unsigned long pid = 0;
    unsigned long sequence = 0;
    char tail[8] = {};
    if (std::sscanf(name.c_str(), ".rcp%lu_%lu%7s", &pid, &sequence, tail) != 3 ||
        std::strcmp(tail, ".part") != 0 || pid == 0 || pid == static_cast<unsigned long>(getpid()))
      continue;
    // Only a process that no longer exists cannot be writing it.
    if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
    if (::unlink(it->path().c_str()) == 0) ++removed;
  }
  return removed;
}

Status WriteFileAtomic(const std::string& path, std::string_view bytes, bool flush_to_disk) {
  const std::string scratch = ScratchBeside(path);
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

std::string CannotReadFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::strerror(errno);
  ::close(fd);
  return {};
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

namespace {

// The mappings whose reads may fault because another program cut the file short. A SIGBUS
// inside one of them replaces the pages from the fault to the mapping's end with zeros and
// marks the slot, so the read in progress goes on and the load fails afterwards instead of the
// whole engine ending. Plain atomics: the handler may take no lock.
struct MapSlot {
  std::atomic<uintptr_t> begin{0};
  std::atomic<size_t> size{0};
  std::atomic<bool> cut_short{false};
};
constexpr int kMapSlots = 64;
MapSlot g_map_slots[kMapSlots];
struct sigaction g_earlier_bus_action;
uintptr_t g_page_size = 4096;

void OnBusError(int signal, siginfo_t* info, void* context) {
  const auto at = reinterpret_cast<uintptr_t>(info->si_addr);
  for (MapSlot& slot : g_map_slots) {
    const uintptr_t begin = slot.begin.load(std::memory_order_acquire);
    const size_t size = slot.size.load(std::memory_order_acquire);
    if (begin == 0 || at < begin || at >= begin + size) continue;
    const uintptr_t from = at & ~(g_page_size - 1);
    if (mmap(reinterpret_cast<void*>(from), begin + size - from, PROT_READ,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED)
      break;
    slot.cut_short.store(true, std::memory_order_release);
    return;
  }
  // Not one of ours: whoever handled it before (a sanitizer), or the default action, which
  // the faulting instruction meets again on return.
  if ((g_earlier_bus_action.sa_flags & SA_SIGINFO) && g_earlier_bus_action.sa_sigaction) {
    g_earlier_bus_action.sa_sigaction(signal, info, context);
    return;
  }
  sigaction(SIGBUS, &g_earlier_bus_action, nullptr);
}

void InstallBusErrorHandler() {
  static std::once_flag once;
  std::call_once(once, [] {
    g_page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &g_earlier_bus_action);
  });
}

MapSlot* ClaimMapSlot(void* map, size_t size) {
  for (MapSlot& slot : g_map_slots) {
    uintptr_t free = 0;
    if (!slot.begin.compare_exchange_strong(free, reinterpret_cast<uintptr_t>(map))) continue;
    slot.cut_short.store(false, std::memory_order_relaxed);
    slot.size.store(size, std::memory_order_release);
    return &slot;
  }
  return nullptr;
}

}  // namespace

MappedFile::~MappedFile() {
  if (!map_) return;
  auto* slot = static_cast<MapSlot*>(slot_);
  slot->size.store(0, std::memory_order_release);
  slot->begin.store(0, std::memory_order_release);
  munmap(map_, size_);
}

bool MappedFile::Open(const std::string& path, bool whole) {
  InstallBusErrorHandler();
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    struct stat st {};
    const bool stated = fstat(fd, &st) == 0;
    if (stated && S_ISREG(st.st_mode) && st.st_size > 0) {
      const auto size = static_cast<size_t>(st.st_size);
      void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | (whole ? MAP_POPULATE : 0), fd, 0);
      if (map != MAP_FAILED) {
        // Without a slot a fault could not be caught: read the file instead.
        if (MapSlot* slot = ClaimMapSlot(map, size)) {
          map_ = map, size_ = size, slot_ = slot;
        } else {
          munmap(map, size);
        }
      }
    }
    close(fd);
    if (map_) return true;
    if (stated && S_ISDIR(st.st_mode)) return false;  // a folder has no bytes to read
  }
  copy_ = ReadFileBytes(path);
  return copy_.has_value();
}

bool MappedFile::CutShort() const {
  return map_ && static_cast<const MapSlot*>(slot_)->cut_short.load(std::memory_order_acquire);
}

const uint8_t* MappedFile::data() const {
  return map_ ? static_cast<const uint8_t*>(map_) : reinterpret_cast<const uint8_t*>(copy_->data());
}

size_t MappedFile::size() const {
  return map_ ? size_ : copy_->size();
}

}  // namespace pictavo::platform
