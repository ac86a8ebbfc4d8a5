// File-system helpers that the engine's data-safety rules rest on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace pictavo::platform {

// The path delimiter of this platform. Code joins paths with it, never with a literal.
inline constexpr char kPathDelim = '/';

// Ensures a trailing delimiter (an empty path stays empty).
std::string IncludeTrailingDelim(std::string_view path);

// The whole file; nullopt when it cannot be opened or is a folder. Takes pipes and devices too,
// and has no size limit: for files the engine itself made or a route chose.
std::optional<std::string> ReadFileBytes(const std::string& path);

// A whole regular file of at most `max_bytes`, for files a job names (settings, list, actions,
// language). Anything else is refused without a byte read from it: a folder, a device, a FIFO
// (whose opening would wait for a writer), a socket, a larger file. `why` (when given) then says
// why in words for a log line: "it is a folder", "it is larger than 16 MB", "no such file or
// directory", "permission denied"; it is cleared on success.
std::optional<std::string> ReadRegularFile(const std::string& path, size_t max_bytes,
                                           std::string* why = nullptr);

// At most the first `max_bytes` of a file (fewer when it is shorter): for telling formats apart.
std::optional<std::string> ReadFilePrefix(const std::string& path, size_t max_bytes);

// A scratch name beside `path`, unique in this process: ".rcp<process id>_<n>.part".
std::string ScratchBeside(const std::string& path);

// Removes the scratch files in `folder` left by engines that no longer run (killed while
// writing); those of running processes stay. Returns how many were removed.
int RemoveStaleScratch(const std::string& folder);

// Writes bytes under a scratch name in the same folder, flushes them, then renames the
// scratch file over `path`. On any failure the scratch file is removed and `path` is untouched.
// `flush_to_disk` false leaves out the fsync: for files that are themselves scratch files of a
// later step, where a power loss loses the job anyway and the flush costs milliseconds a file.
Status WriteFileAtomic(const std::string& path, std::string_view bytes, bool flush_to_disk = true);

// Creates an empty file only when nothing of that name exists yet (atomic, so of several callers
// racing for one name exactly one gets kCreated). kFailed: the folder is missing or not writable.
enum class ExclusiveCreate { kCreated, kAlreadyExists, kFailed };
ExclusiveCreate CreateFileExclusive(const std::string& path);

// A file's bytes, mapped rather than read into a private copy: a header check touches only the
// pages the parser looks at (a TIFF keeps its directory anywhere, often at the end), and a load
// decodes straight from the page cache. Anything that cannot be mapped (an empty file, a pipe)
// is read the ordinary way. A file cut short by another program while it is mapped reads as
// zeros past its new end instead of faulting; `CutShort` then tells the reader to give up.
class MappedFile {
 public:
  MappedFile() = default;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();

  // `whole`: every byte will be read, so the pages are mapped in one go. False for a folder or a
  // file that cannot be opened.
  bool Open(const std::string& path, bool whole);
  const uint8_t* data() const;
  size_t size() const;
  // True once a read fell beyond the end of a file that shrank after it was opened.
  bool CutShort() const;

 private:
  void* map_ = nullptr;
  void* slot_ = nullptr;
  size_t size_ = 0;
  std::optional<std::string> copy_;
};

bool FileExists(const std::string& path);
bool DirectoryExists(const std::string& path);
// Why the file cannot be opened for reading, in the system's words ("Permission denied"); ""
// when it can.
std::string CannotReadFile(const std::string& path);

// The folder that holds the running executable, with a trailing delimiter.
std::string ExecutableFolder();

}  // namespace pictavo::platform
