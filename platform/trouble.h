// Why a stage failed, in words a user can act on.
//
// The stages' routines report success or failure as numbers; the reason lies deeper: a tool
// that is missing from the tool folder, a tool ended by the time-out, a picture over a job
// limit, a tool's own complaint on its standard error, a result that verification refused. The
// places that learn such a thing note it here, and the stage that fails asks its recorder for
// the most telling one.
//
// A TroubleRecorder collects what is noted on its own thread while it lives (each worker runs
// its stages on one thread). Recorders nest: a recorder hands what it collected to the one it
// replaced when it ends, so an outer stage still sees the troubles of an inner one.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace pictavo::platform {

// Kinds of trouble, most telling last: when a stage failed for several reasons, the reason of
// the highest kind is given.
enum class Trouble : size_t {
  kUnavailable,     // a tool of a fallback route has no program on this platform at all
  kToolSaid,        // a tool that ended normally wrote this last line to its standard error
  kDecoder,         // the engine's own decoder refused a file (its message)
  kToolFailed,      // a tool ended with an exit code other than 0 (with its error line)
  kResultRejected,  // a result was there, but verification refused it (why)
  kSystem,          // the operating system refused (permission denied, no space, ...)
  kMissingTool,     // a tool of the route is not in the tool folder (names the package)
  kToolEnded,       // a tool was ended by the time-out or the stop button
  kLimit,           // a picture over a job limit (names the "Limits" key)
  kCount
};

class TroubleRecorder {
 public:
  TroubleRecorder();   // becomes the thread's current recorder
  ~TroubleRecorder();  // hands its troubles to the recorder it replaced
  TroubleRecorder(const TroubleRecorder&) = delete;
  TroubleRecorder& operator=(const TroubleRecorder&) = delete;

  // Keeps the first text of each kind; later ones of the same kind are dropped.
  void Note(Trouble kind, const std::string& text);
  // The first trouble of the highest kind noted. What a tool said in passing is no reason of its
  // own: it follows `plain` (the stage's own words for "it failed") or a refused result, in
  // brackets. `plain` alone when nothing was noted.
  std::string Reason(const std::string& plain = std::string()) const;
  bool Has(Trouble kind) const { return !First(kind).empty(); }
  // The first text noted of `kind`; empty when none.
  const std::string& First(Trouble kind) const { return first_[static_cast<size_t>(kind)]; }

 private:
  TroubleRecorder* previous_;
  std::array<std::string, static_cast<size_t>(Trouble::kCount)> first_;
};

// Notes a trouble with the calling thread's current recorder; nothing happens without one.
void NoteTrouble(Trouble kind, const std::string& text);

}  // namespace pictavo::platform
