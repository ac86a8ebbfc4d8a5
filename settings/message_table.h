// The log messages of a job, with their English defaults, replaceable from section "fProcess"
// of a language file. One table per job, filled before the workers start and then only read,
// so workers may share it.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace pictavo::settings {

enum class Msg : size_t {
  kStarting,              // "Label1.Caption"
  kCompleted,             // "Label2.Caption"
  kOf,                    // "Label3.Caption"
  kFilesProcessed,        // "Label4.Caption"
  kReadingFile,           // "Label8.Caption"
  kFormatNotSupported,    // "Label10.Caption"
  kFail,                  // "Label11.Caption"
  kError,                 // "Label12.Caption"
  kApplyingActions,       // "Label13.Caption"
  kConvertingTo,          // "Label14.Caption"
  kDone,                  // "Label15.Caption"
  kSavingResultTo,        // "Label16.Caption"
  kWasSkipped,            // "Label17.Caption"
  kConvertingFrom,        // "Label18.Caption"
  kTo,                    // "Label19.Caption"
  kMovingOriginalTo,      // "Label20.Caption"
  kDeletingFile,          // "Label21.Caption"
  kFile,                  // "Label22.Caption"
  kSkipped,               // "Label23.Caption"
  kPage,                  // "Label24.Caption"
  kCouldNotRead,          // "Label25.Caption"
  kCouldNotApplyActions,  // "Label26.Caption"
  kCouldNotConvert,       // "Label27.Caption"
  kSavingThumbnailTo,     // "Label28.Caption"
  kTempWarning1,          // "Label10_new.Caption"
  kTempWarning2,          // "Label11_new.Caption"
  kTempWarning3,          // "Label12_new.Caption"
  kTempWarning4,          // "Label13_new.Caption"
  kFileInfo,              // "Label29.Caption"
  kProcessingTime,        // "Label30.Caption"
  kTotalProcessingTime,   // "Label31.Caption"
  kMin,                   // "Label32.Caption"
  kSec,                   // "Label33.Caption"
  // Messages of the summary and of failure reasons, beyond the window's own captions.
  kFailedFiles,     // "Failed_files.Caption"
  kSkippedFiles,    // "Skipped_files.Caption"
  kRenamedResults,  // "Renamed_results.Caption"
  kNoSuchFile,      // "Reason_no_file.Caption"
  kNoToolFolder,    // "Reason_no_tool_folder.Caption"
  kNoReaderOpened,  // "Reason_no_reader.Caption"
  kNoResult,        // "Reason_no_result.Caption"
  kCount
};

inline constexpr std::string_view kSupportAddress = "support@pictavo.example";
inline constexpr std::string_view kMessageSection = "fProcess";

struct MessageRow {
  Msg id;
  std::string_view key;
  std::string_view english;
};

// Every message in Msg order: its language-file key and English default.
extern const std::array<MessageRow, static_cast<size_t>(Msg::kCount)> kMessageRows;

class MessageTable {
 public:
  // All English defaults.
  MessageTable();

  // Replaces each message whose key the file's "fProcess" section holds; the others keep
  // their current text. An unreadable file changes nothing and returns why.
  Status LoadLanguageFile(const std::string& path);

  const std::string& operator[](Msg id) const { return texts_[static_cast<size_t>(id)]; }
  // The text of a key ("Label8.Caption", any case); empty for an unknown key.
  std::string ByKey(std::string_view key) const;

 private:
  std::array<std::string, static_cast<size_t>(Msg::kCount)> texts_;
};

}  // namespace pictavo::settings
