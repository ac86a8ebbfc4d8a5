#include "settings/message_table.h"

#include "platform/text_encoding.h"
#include "settings/mem_ini_file.h"

namespace pictavo::settings {

const std::array<MessageRow, static_cast<size_t>(Msg::kCount)> kMessageRows = {{
    {Msg::kStarting, "Label1.Caption", "Starting..."},
    {Msg::kCompleted, "Label2.Caption", "The conversion has been completed."},
    {Msg::kOf, "Label3.Caption", "of"},
    {Msg::kFilesProcessed, "Label4.Caption", "files were successfully processed."},
    {Msg::kReadingFile, "Label8.Caption", "Reading file..."},
    {Msg::kFormatNotSupported, "Label10.Caption",
     "Format is not supported by Pictavo, please contact support@pictavo.example"},
    {Msg::kFail, "Label11.Caption", "Fail"},
    {Msg::kError, "Label12.Caption", "Error:"},
    {Msg::kApplyingActions, "Label13.Caption", "Applying editing actions:"},
    {Msg::kConvertingTo, "Label14.Caption", "Converting to"},
    {Msg::kDone, "Label15.Caption", "Done"},
    {Msg::kSavingResultTo, "Label16.Caption", "Saving result to:"},
    {Msg::kWasSkipped, "Label17.Caption", "was skipped"},
    {Msg::kConvertingFrom, "Label18.Caption", "Converting from"},
    {Msg::kTo, "Label19.Caption", "to"},
    {Msg::kMovingOriginalTo, "Label20.Caption", "Moving original file to:"},
    {Msg::kDeletingFile, "Label21.Caption", "Deleting file:"},
    {Msg::kFile, "Label22.Caption", "File"},
    {Msg::kSkipped, "Label23.Caption", "Skipped"},
    {Msg::kPage, "Label24.Caption", "Page"},
    {Msg::kCouldNotRead, "Label25.Caption", "Could not read file"},
    {Msg::kCouldNotApplyActions, "Label26.Caption", "Could not apply editing action(s)"},
    {Msg::kCouldNotConvert, "Label27.Caption", "Could not convert file"},
    {Msg::kSavingThumbnailTo, "Label28.Caption", "Saving thumbnail to:"},
    {Msg::kTempWarning1, "Label10_new.Caption", "Warning: Access to Pictavo Temp folder"},
    {Msg::kTempWarning2, "Label11_new.Caption", "is denied."},
    {Msg::kTempWarning3, "Label12_new.Caption",
     "Some files would not be converted. To change the Temp folder,"},
    {Msg::kTempWarning4, "Label13_new.Caption",
     "select Menu->Saving Settings->Additional saving settings->Temp folder."},
    {Msg::kFileInfo, "Label29.Caption", "File info:"},
    {Msg::kProcessingTime, "Label30.Caption", "Processing time:"},
    {Msg::kTotalProcessingTime, "Label31.Caption", "Total processing time:"},
    {Msg::kMin, "Label32.Caption", "min."},
    {Msg::kSec, "Label33.Caption", "sec."},
    {Msg::kFailedFiles, "Failed_files.Caption", "Files that failed:"},
    {Msg::kSkippedFiles, "Skipped_files.Caption", "Files skipped:"},
    {Msg::kRenamedResults, "Renamed_results.Caption",
     "Results renamed because another result of the job had their name:"},
    {Msg::kNoSuchFile, "Reason_no_file.Caption", "the file does not exist"},
    {Msg::kNoToolFolder, "Reason_no_tool_folder.Caption",
     "the tool folder \"utl\" is missing beside the engine"},
    {Msg::kNoReaderOpened, "Reason_no_reader.Caption",
     "no reader recognised the file's content (damaged, or a format this machine cannot read)"},
    {Msg::kNoResult, "Reason_no_result.Caption", "the conversion left no result"},
}};

MessageTable::MessageTable() {
  for (const MessageRow& row : kMessageRows)
    texts_[static_cast<size_t>(row.id)] = std::string(row.english);
}

Status MessageTable::LoadLanguageFile(const std::string& path) {
  MemIniFile ini;
  if (Status s = ini.Load(path); !s.ok()) return s;
  for (const MessageRow& row : kMessageRows)
    if (std::optional<std::string> text = ini.Find(kMessageSection, row.key))
      texts_[static_cast<size_t>(row.id)] = *text;
  return Status::OK();
}

std::string MessageTable::ByKey(std::string_view key) const {
  for (const MessageRow& row : kMessageRows)
    if (platform::EqualsNoCase(row.key, key)) return texts_[static_cast<size_t>(row.id)];
  return {};
}

}  // namespace pictavo::settings
