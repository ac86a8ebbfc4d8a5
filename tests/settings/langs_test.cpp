#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "settings/form_model.h"
#include "settings/langs.h"
#include "settings/message_table.h"
#include "tests/support/test_paths.h"

namespace pictavo::settings {
namespace {

using K = ComponentKind;

FormModel LogForm() {
  FormModel form("fLog", "Pictavo Log");
  form.Add("Label1", K::kLabel, "Estimated time remaining:");
  form.Add("AdvClose", K::kButton, "Stop");
  form.Add("Edit1", K::kEdit);
  form.Add("Combo1", K::kComboBox).items = {"a", "b"};
  form.Add("List1", K::kListView).columns = {"Name", "Size", "Date"};
  form.Add("Open1", K::kOpenDialog);
  form.Add("Menu1", K::kMenuItem, "File");
  form.Add("Shape1", K::kShape);
  form.Add("Memo1", K::kMemo);
  return form;
}

class LangsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(platform::WriteTextFileUtf16(dir_.file("German.lng"),
                                             "[fLog]\n"
                                             "caption=Pictavo Protokoll\n"
                                             "label1.CAPTION=Verbleibende Zeit:\n"
                                             "AdvClose.Caption=Anhalten\n"
                                             "AdvClose.Hint=Hält an\n"
                                             "Missing.Caption=nichts\n"
                                             "NoDot=ignoriert\n"
                                             "Edit1.Text=Text\n"
                                             "Edit1.Caption=kein Caption\n"
                                             "Combo1.Items=eins|zwei|drei\n"
                                             "List1.Columns=Name|Größe\n"
                                             "Open1.Title=Öffnen\n"
                                             "Menu1.Caption=Datei\n"
                                             "Shape1.Caption=kein Caption\n"
                                             "Shape1.Hint=Form\n"
                                             "Memo1.Text=kein Text\n"
                                             "[fProcess]\n"
                                             "Label8.Caption=Lese Datei...\n"
                                             "Label15.Caption=\n")
                    .ok());
    ASSERT_TRUE(
        platform::WriteFileAtomic(dir_.file("french.LNG"), "[fLog]\ncaption=Journal\n").ok());
    ASSERT_TRUE(platform::WriteFileAtomic(dir_.file("readme.txt"), "x").ok());
  }
  pictavo::testing::TempDir dir_;
};

TEST_F(LangsTest, ListsLanguageFilesOfAnyCase) {
  TLangs langs;
  EXPECT_EQ(langs.active_language(), "original");
  langs.LoadLanguages(dir_.path().string());
  std::vector<std::string> names;
  for (const auto& l : langs.languages()) names.push_back(l.name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"German", "french"}));
  for (const auto& l : langs.languages()) EXPECT_TRUE(platform::FileExists(l.path)) << l.path;

  langs.LoadLanguages(dir_.file("no-such-folder"));
  EXPECT_TRUE(langs.languages().empty());
}

TEST_F(LangsTest, AppliesTextsByComponentKind) {
  TLangs langs;
  langs.LoadLanguages(dir_.path().string());
  FormModel form = LogForm();
  langs.SetActiveLang("german", "FLOG", form);
  EXPECT_EQ(langs.active_language(), "german");
  EXPECT_EQ(form.form().caption, "Pictavo Protokoll");
  EXPECT_EQ(form.Find("Label1")->caption, "Verbleibende Zeit:");
  EXPECT_EQ(form.Find("AdvClose")->caption, "Anhalten");
  EXPECT_EQ(form.Find("AdvClose")->hint, "Hält an");
  EXPECT_EQ(form.Find("Edit1")->text, "Text");
  EXPECT_EQ(form.Find("Edit1")->caption, "");
  EXPECT_EQ(form.Find("Combo1")->items, (std::vector<std::string>{"eins", "zwei", "drei"}));
  EXPECT_EQ(form.Find("List1")->columns, (std::vector<std::string>{"Name", "Größe", "Date"}));
  EXPECT_EQ(form.Find("Open1")->title, "Öffnen");
  EXPECT_EQ(form.Find("Menu1")->caption, "Datei");
  EXPECT_EQ(form.Find("Shape1")->caption, "");
  EXPECT_EQ(form.Find("Shape1")->hint, "Form");
  EXPECT_EQ(form.Find("Memo1")->text, "");
}

TEST_F(LangsTest, UnknownLanguageFallsBackToEnglishWithoutChanges) {
  TLangs langs;
  langs.LoadLanguages(dir_.path().string());
  FormModel form = LogForm();
  langs.SetActiveLang("klingon", "fLog", form);
  EXPECT_EQ(langs.active_language(), "english");
  EXPECT_EQ(form.form().caption, "Pictavo Log");
  EXPECT_EQ(form.Find("AdvClose")->caption, "Stop");
}

TEST_F(LangsTest, MessageTableKeepsDefaultsForMissingKeys) {
  MessageTable messages;
  EXPECT_EQ(messages[Msg::kFormatNotSupported],
            "Format is not supported by Pictavo, please contact support@pictavo.example");
  ASSERT_TRUE(messages.LoadLanguageFile(dir_.file("German.lng")).ok());
  EXPECT_EQ(messages[Msg::kReadingFile], "Lese Datei...");
  EXPECT_EQ(messages[Msg::kDone], "");  // present but empty replaces the default
  EXPECT_EQ(messages[Msg::kSec], "sec.");
  EXPECT_EQ(messages.ByKey("label30.caption"), "Processing time:");
  EXPECT_FALSE(messages.LoadLanguageFile(dir_.file("none.lng")).ok());
  EXPECT_EQ(messages[Msg::kReadingFile], "Lese Datei...");
  for (size_t i = 0; i < kMessageRows.size(); ++i)
    EXPECT_EQ(static_cast<size_t>(kMessageRows[i].id), i) << kMessageRows[i].key;
}

// A language file saved as UTF-16 without a byte-order mark was read as UTF-8 and translated
// nothing; one that is a FIFO or a folder must neither block nor end the engine.
TEST_F(LangsTest, Utf16WithoutByteOrderMarkAndOddFilesAreHandled) {
  const std::string text =
      "[fLog]\r\ncaption=\xC3\x96"
      "ffnen\r\n[fProcess]\r\nLabel8.Caption= Lese \r\n";
  for (bool little_endian : {true, false}) {
    std::string bytes = platform::EncodeUtf16LEWithBom(text).substr(2);
    if (!little_endian)
      for (size_t i = 0; i + 1 < bytes.size(); i += 2) std::swap(bytes[i], bytes[i + 1]);
    ASSERT_TRUE(platform::WriteFileAtomic(dir_.file("bare.lng"), bytes).ok());
    TLangs langs;
    langs.LoadLanguages(dir_.path().string());
    FormModel form = LogForm();
    langs.SetActiveLang("bare", "fLog", form);
    EXPECT_EQ(form.form().caption,
              "\xC3\x96"
              "ffnen")
        << little_endian;
    MessageTable messages;
    ASSERT_TRUE(messages.LoadLanguageFile(dir_.file("bare.lng")).ok());
    EXPECT_EQ(messages[Msg::kReadingFile], "Lese") << little_endian;  // blanks outside quotes go
  }

  ASSERT_EQ(::mkfifo(dir_.file("fifo.lng").c_str(), 0600), 0);
  std::filesystem::create_directory(dir_.file("folder.lng"));
  TLangs langs;
  langs.LoadLanguages(dir_.path().string());
  FormModel form = LogForm();
  langs.SetActiveLang("fifo", "fLog", form);  // listed, refused unread
  EXPECT_EQ(form.form().caption, "Pictavo Log");
  MessageTable messages;
  const Status fifo = messages.LoadLanguageFile(dir_.file("fifo.lng"));
  EXPECT_NE(fifo.message().find("it is a pipe (FIFO)"), std::string::npos) << fifo.message();
  const Status folder = messages.LoadLanguageFile(dir_.file("folder.lng"));
  EXPECT_NE(folder.message().find("it is a folder"), std::string::npos) << folder.message();
  EXPECT_EQ(messages[Msg::kReadingFile], "Reading file...");
}

TEST(SplitLangList, OneSyntaxForItemsAndColumns) {
  EXPECT_TRUE(SplitLangList("").empty());
  EXPECT_EQ(SplitLangList("a"), std::vector<std::string>{"a"});
  EXPECT_EQ(SplitLangList("a||b|"), (std::vector<std::string>{"a", "", "b", ""}));
}

}  // namespace
}  // namespace pictavo::settings
