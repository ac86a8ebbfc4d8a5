// Scratch file names in the job's temporary folder.
#pragma once

#include <string>

namespace pictavo::tools {

// Prefix of every scratch file; the pipeline deletes the temporary folder's files that begin with
// it once a file is finished.
inline constexpr char kScratchPrefix[] = "rcp";

// A fresh name in `temp_folder` (a trailing delimiter is optional), without extension:
// "rcp" + the time as "hhmmsszzz" + a random number below 99 + a random number below 999.
// Callers append the extension the tool needs.
//
// The name is reserved: an empty marker file, the name followed by "~", is created exclusively,
// and a name whose marker exists is drawn again, so names differ even when several workers ask in
// the same millisecond. The name itself stays free (a caller may make a folder of it). The marker
// starts with "rcp" and goes with the pipeline's clean-up. When the folder cannot be written, the
// name is returned unreserved. Thread-safe.
std::string NewTempName(const std::string& temp_folder);

// A folder of `temp_folder` for the scratch of one job of this process, "KIND-PID-START-N/"
// (with a trailing delimiter; not created): named after the process (its id and start time) so
// that jobs side by side never share a file and a later job can tell when the owner is gone.
// `kind` is one of kScratchOwnerKinds. Thread-safe; N counts the folders this process named.
inline constexpr const char* kScratchOwnerKinds[] = {"job", "convert"};
std::string OwnScratchFolder(const std::string& temp_folder, const char* kind);

// Removes the folders of `temp_folder` named by OwnScratchFolder whose owner no longer runs (a
// killed engine or front end); those of running processes, and every other entry, stay. Returns
// how many were removed.
int RemoveOrphanedScratch(const std::string& temp_folder);

}  // namespace pictavo::tools
