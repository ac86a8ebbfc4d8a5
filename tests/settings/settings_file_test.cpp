#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <random>

#include "platform/fs.h"
#include "platform/special_folders.h"
#include "platform/text_encoding.h"
#include "settings/main_settings.h"
#include "settings/mem_ini_file.h"
#include "settings_test_util.h"
#include "tests/support/test_paths.h"

namespace pictavo::settings {
namespace {

using test_util::Dump;
using test_util::NonDefaultSettings;

TMainSettings Defaults() {
  TMainSettings s;
  s.SetDefault();
  return s;
}

TMainSettings ReadText(const std::string& text) {
  TMainSettings s = Defaults();
  s.read_ini_settings(MemIniFile::FromText(text));
  return s;
}

std::map<std::string, std::string> AsMap(const std::vector<std::string>& lines) {
  std::map<std::string, std::string> m;
  for (const std::string& l : lines) m[l.substr(0, l.find('='))] = l.substr(l.find('=') + 1);
  return m;
}

TEST(SettingsDefaults, DerivedValuesAndFolders) {
  TMainSettings s = Defaults();
  EXPECT_EQ(s.view.left, 60);
  EXPECT_EQ(s.view.top, 60);
  EXPECT_EQ(s.main.temp_folder, platform::AppDataFolder() + "Pictavo7/temp/");
  EXPECT_EQ(s.main.dest_path, platform::PicturesFolder());
  EXPECT_EQ(s.thumbnail_sets[4].folder, platform::PicturesFolder());
  EXPECT_EQ(s.thumbnail_sets[3].mask, "<filename>_thumb");
  EXPECT_EQ(s.window.extension[5], "AVIF");
  EXPECT_TRUE(s.multipage.option_flags.Is(1));
  EXPECT_FALSE(s.multipage.option_flags.Is(2));
  EXPECT_TRUE(s.file_name.case_option_flags.Is(1));
  EXPECT_EQ(s.thumbnail_set_count, 5);
  // Reading nothing changes nothing.
  EXPECT_EQ(Dump(ReadText("")), Dump(s));
}

TEST(SettingsFile, EveryKeyRoundTripsWithNonDefaultValues) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("job.cfg");
  TMainSettings original = NonDefaultSettings();

  // Every value really differs from its default (list counts and Count_more aside).
  const auto defaults = AsMap(Dump(Defaults()));
  const auto written = AsMap(Dump(original));
  int compared = 0;
  for (const auto& [key, value] : defaults) {
    if (key == "Thumbnails/Count_more") continue;
    ASSERT_TRUE(written.count(key)) << key;
    EXPECT_NE(written.at(key), value) << key << " keeps its default";
    ++compared;
  }
  EXPECT_GT(compared, 350);

  TMainSettings to_write = original;
  ASSERT_TRUE(to_write.write_ini_settings(path, 1).ok());
  TMainSettings back = Defaults();
  ASSERT_TRUE(back.read_ini_settings(path).ok());
  EXPECT_EQ(Dump(back), Dump(original));
  EXPECT_EQ(back.thumbnails.mask, original.thumbnail_sets[0].mask);
  EXPECT_EQ(back.thumbnails.width, original.thumbnail_sets[0].width);
  EXPECT_EQ(back.custom_places.size(), 2u);
  EXPECT_EQ(back.plt.pens[1].color, original.plt.pens[1].color);

  std::optional<std::string> bytes = platform::ReadFileBytes(path);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->substr(0, 2), "\xFF\xFE");
}

TEST(SettingsFile, ModesSelectFrontEndKeysAndWriteOnlyKeysAreNeverRead) {
  TMainSettings s = NonDefaultSettings();
  s.main.dest_ext = "tif";
  MemIniFile mode2, mode3;
  ASSERT_TRUE(s.write_ini_settings(mode2, 2).ok());
  ASSERT_TRUE(s.write_ini_settings(mode3, 3).ok());
  EXPECT_FALSE(mode2.Find("Main", "Image_preview"));
  EXPECT_FALSE(mode2.Find("Main", "Ext_index"));
  EXPECT_FALSE(mode2.SectionExists("CustomPlaces"));
  EXPECT_TRUE(mode2.Find("Main", "Default_local_folder"));  // not a front-end key
  EXPECT_FALSE(mode2.Find("Main", "Name"));
  EXPECT_EQ(mode3.ReadString("Main", "Name", ""), "TIF");
  EXPECT_EQ(mode2.ReadString("Thumbnails", "Count_more", ""), "5");
  EXPECT_TRUE(mode2.Find("SVG", "Font2_2"));

  // Mode 2 leaves the front-end keys at their defaults on reading.
  TMainSettings back = Defaults();
  back.read_ini_settings(mode2);
  EXPECT_TRUE(back.main.image_preview);
  EXPECT_TRUE(back.custom_places.empty());
  EXPECT_EQ(back.main.dest_path, s.main.dest_path);

  TMainSettings quirks = ReadText(
      "[Main]\nName=PNG\nDest_ext=GIF\n[Thumbnails]\nCount_more=2\n[Thumbnails_9]\nWidth=1\n");
  EXPECT_EQ(quirks.main.dest_ext, "GIF");
  EXPECT_EQ(quirks.thumbnail_set_count, 5);
}

TEST(SettingsFile, WriterKeepsWhatTheFileAlreadyHolds) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("job.cfg");
  ASSERT_TRUE(
      platform::WriteFileAtomic(path, "[Front]\nSecret=42\n; note\n[jpg]\nquality=5\n").ok());
  TMainSettings s = Defaults();
  ASSERT_TRUE(s.write_ini_settings(path, 2).ok());
  MemIniFile ini;
  ASSERT_TRUE(ini.Load(path).ok());
  EXPECT_EQ(ini.ReadString("Front", "Secret", ""), "42");
  EXPECT_NE(ini.ToText().find("; note"), std::string::npos);
  EXPECT_EQ(ini.ReadString("JPG", "Quality", ""), "80");
  EXPECT_EQ(ini.SectionKeys("JPG").front(), "quality");  // rewritten in place
}

// Spellings that differ from the writer's, in every encoding the reader accepts.
constexpr const char* kHandWritten =
    "[AI_Write]\r\nVer=7\r\n"
    "[Avif_Write]\r\nQuality=55\r\n"
    "[BPG_WRITE]\r\nquality=56\r\n"
    "[jxr_write]\r\nQUALITY=57\r\n"
    "[WebP_Write]\r\nLossless=1\r\n"
    "[EPS_Write]\r\nCreate_preview=1\r\n"
    "[PDF_Write]\r\nOrientation=1\r\nowner_password=s3cret\r\n"
    "[Shp_Write]\r\nPrj=4326\r\n"
    "[GBR]\r\nType=3\r\n"
    "[PDF_EPS_PS]\r\nfont_path=/usr/share/fonts\r\n"
    "[Save]\r\nOverwrite=3\r\nSame_Date=1\r\n"
    "[vec]\r\nDXF_DWG_units=2\r\n"
    "[VEC]\r\nras2vec_OPTION=4\r\n"
    "[raw_READ]\r\n16BIT=1\r\n"
    "[ico]\r\n256P=0\r\n"
    "[main]\r\nfile_mask=jpg, png\r\n";

TEST(SettingsFile, ReaderFindsOddCapitalisationsInUtf16AndUtf8) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("hand.cfg");
  const std::string text = kHandWritten;
  for (const std::string& bytes : {test_util::Utf16(text, true), test_util::Utf16(text, false),
                                   text, std::string("\xEF\xBB\xBF") + text}) {
    ASSERT_TRUE(platform::WriteFileAtomic(path, bytes).ok());
    TMainSettings s = Defaults();
    ASSERT_TRUE(s.read_ini_settings(path).ok());
    EXPECT_EQ(s.ai_write.ver, 7);
    EXPECT_EQ(s.avif_write.quality, 55);
    EXPECT_EQ(s.bpg_write.quality, 56);
    EXPECT_EQ(s.jxr_write.quality, 57);
    EXPECT_TRUE(s.webp_write.lossless);
    EXPECT_TRUE(s.eps_write.create_preview);
    EXPECT_EQ(s.pdf_write.orientation, 1);
    EXPECT_EQ(s.pdf_write.owner_password, "s3cret");
    EXPECT_EQ(s.shp_write.prj, 4326);
    EXPECT_EQ(s.gbr.type, 3);
    EXPECT_EQ(s.pdf_eps_ps.font_path, "/usr/share/fonts");
    EXPECT_EQ(s.save.overwrite, 3);
    EXPECT_EQ(s.save.same_date, 1);
    EXPECT_EQ(s.vec.dxf_dwg_units, 2);
    EXPECT_EQ(s.vec.ras2vec_option, 4);
    EXPECT_TRUE(s.raw_read.bits16);
    EXPECT_FALSE(s.ico.p256);
    EXPECT_EQ(s.main.file_mask, "jpg, png");
  }
}

// A UTF-16 file that a program wrote without a byte-order mark read as UTF-8: every key was
// missed and the job ran with all defaults.
TEST(SettingsFile, Utf16WithoutByteOrderMarkGaveAllDefaults) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("bare.cfg");
  for (bool little_endian : {true, false}) {
    SCOPED_TRACE(little_endian ? "UTF-16LE" : "UTF-16BE");
    ASSERT_TRUE(
        platform::WriteFileAtomic(path, test_util::Utf16(kHandWritten, little_endian).substr(2))
            .ok());
    TMainSettings s = Defaults();
    ASSERT_TRUE(s.read_ini_settings(path).ok());
    EXPECT_EQ(s.ai_write.ver, 7);
    EXPECT_EQ(s.pdf_write.owner_password, "s3cret");
    EXPECT_EQ(s.main.file_mask, "jpg, png");
    EXPECT_EQ(s.save.overwrite, 3);
  }
}

// "Substring_1= " (replace every blank) was written as it stands and read back empty, which
// turned the replacement off; blanks around paths and passwords were lost the same way.
TEST(SettingsFile, TextValuesKeepBlanksAndQuotesThroughTheFile) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("job.cfg");
  TMainSettings s = Defaults();
  s.file_name.replace = true;
  s.file_name.substring_1 = " ";
  s.file_name.substring_2 = "_";
  s.main.dest_path = "/out/trailing blank /";
  s.main.file_mask = " *.jpg";
  s.pdf_write.user_password = "\"quoted\"";
  s.pdf_write.owner_password = " \t";
  s.svg.fonts.resize(1);
  s.svg.fonts[0].font1 = "Times New Roman ";
  s.svg.fonts[0].font2 = "\"";
  ASSERT_TRUE(s.write_ini_settings(path, 1).ok());
  TMainSettings back = Defaults();
  ASSERT_TRUE(back.read_ini_settings(path).ok());
  EXPECT_EQ(Dump(back), Dump(s));
  EXPECT_EQ(back.file_name.substring_1, " ");
  EXPECT_EQ(back.pdf_write.user_password, "\"quoted\"");
  EXPECT_EQ(back.svg.fonts.at(0).font1, "Times New Roman ");

  // What a hand-written file means by its quotes.
  TMainSettings hand = ReadText("[File_name]\nSubstring_1=\" \"\n[Main]\nDest_path=\"/a b/\"\n");
  EXPECT_EQ(hand.file_name.substring_1, " ");
  EXPECT_EQ(hand.main.dest_path, "/a b/");
}

// A text value with a line break wrote "[JPG]" and "Quality=1" into the file as entries of
// their own, which the next job read as settings.
TEST(SettingsFile, LineBreakInATextValueWritesNothing) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("job.cfg");
  ASSERT_TRUE(platform::WriteFileAtomic(path, "[Front]\nKept=1\n").ok());
  TMainSettings s = Defaults();
  s.main.dest_path = "/out\r\n[JPG]\r\nQuality=1";
  const Status written = s.write_ini_settings(path, 1);
  EXPECT_FALSE(written.ok());
  EXPECT_NE(written.message().find("Main/Dest_path"), std::string::npos) << written.message();
  EXPECT_EQ(platform::ReadFileBytes(path).value_or(""), "[Front]\nKept=1\n");

  MemIniFile ini;
  EXPECT_FALSE(s.write_ini_settings(ini, 1).ok());
  EXPECT_FALSE(ini.Find("Main", "Dest_path"));
  EXPECT_EQ(ini.ReadString("JPG", "Quality", ""), "80");  // the real key, not the injected one
  s.main.dest_path = "/out";
  EXPECT_TRUE(s.write_ini_settings(ini, 1).ok());
}

// A settings path that was a folder made the reader ask for 2^63 bytes and end the engine with
// std::bad_alloc; a FIFO made it wait forever. Readers never fail: the defaults stay, and the
// writer refuses to replace what it could not read.
TEST(SettingsFile, PathThatIsNoRegularFileGivesDefaults) {
  pictavo::testing::TempDir dir;
  const std::string folder = dir.file("folder.cfg");
  const std::string fifo = dir.file("fifo.cfg");
  const std::string big = dir.file("big.cfg");
  std::filesystem::create_directory(folder);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_TRUE(platform::WriteFileAtomic(big, "[JPG]\nQuality=5\n").ok());
  std::filesystem::resize_file(big, platform::kMaxTextFileBytes + 1);
  const std::vector<std::string> defaults = Dump(Defaults());
  for (const auto& [path, reason] :
       std::vector<std::pair<std::string, std::string>>{{folder, "it is a folder"},
                                                        {fifo, "it is a pipe (FIFO), not a file"},
                                                        {"/dev/zero", "it is a device, not a file"},
                                                        {big, "it is larger than 16 MB"}}) {
    SCOPED_TRACE(path);
    TMainSettings s = Defaults();
    const Status read = s.read_ini_settings(path);
    EXPECT_EQ(read.message(), "cannot read " + path + ": " + reason);
    EXPECT_EQ(Dump(s), defaults);
    if (path == "/dev/zero") continue;
    const Status written = s.write_ini_settings(path, 1);
    EXPECT_EQ(written.message(), read.message());
  }
  EXPECT_TRUE(std::filesystem::is_directory(folder));
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
  EXPECT_EQ(std::filesystem::file_size(big), platform::kMaxTextFileBytes + 1);
}

// Every settings file a fuzzer found a defect with (fuzz/regressions/settings/): whatever the
// reader makes of it must survive a write and a read unchanged, as fuzz_settings demands.
TEST(SettingsFile, FuzzRegressionsSurviveAWriteAndARead) {
  const std::filesystem::path root =
      std::filesystem::path(pictavo::testing::SourceDir()) / "fuzz/regressions/settings";
  int replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root)) {
    SCOPED_TRACE(entry.path().string());
    TMainSettings s = Defaults();
    ASSERT_TRUE(s.read_ini_settings(entry.path().string()).ok());
    MemIniFile ini;
    ASSERT_TRUE(s.write_ini_settings(ini, 1).ok());
    const TMainSettings back =
        ReadText(platform::DecodeText(platform::EncodeUtf16LEWithBom(ini.ToText())));
    EXPECT_EQ(Dump(back), Dump(s));
    ++replayed;
  }
  EXPECT_GT(replayed, 0);
}

TEST(SettingsFile, ClampsAndBadValues) {
  TMainSettings s = ReadText(
      "[Multipage]\nOption=0\nGroup=0\n[Colors]\nOption=7\n[DPI]\nOption=5\n"
      "[File_name]\nCase_option=-4\n"
      "[DXF_write]\nVersion=0\nText=5\nSpline=-1\n[DWG_write]\nVersion=9\nText=1\nSpline=0\n"
      "[PDF_Write]\nOrientation=-3\n[Window]\nLess_bytes=0\nMore_bytes=9\n"
      "[SVG_read]\nSize=3\n[Vec]\nDXF_DWG_Units=0\n[Main]\nIcons_list_details=-5\n"
      "[JPG]\nColor_space=12\nQuality=abc\nSize=\n[TIF]\nCompression=-1\n"
      "[Save]\nSave_path_option=4\n[Thumbnails]\nResize_type=9\n"
      "[PNG]\nColor_red=300\nColor_green=-1\nColor_blue=x\n");
  EXPECT_EQ(s.multipage.option, 1);
  EXPECT_EQ(s.multipage.group, 1);
  EXPECT_EQ(s.colors.option, 3);
  EXPECT_EQ(s.dpi.option, 2);
  EXPECT_EQ(s.file_name.case_option, 1);
  EXPECT_EQ(s.dxf_write.version, 8);  // out of range becomes 8, not 1
  EXPECT_EQ(s.dxf_write.text, 0);
  EXPECT_EQ(s.dxf_write.spline, 1);
  EXPECT_EQ(s.dwg_write.version, 8);
  EXPECT_EQ(s.dwg_write.text, 1);
  EXPECT_EQ(s.dwg_write.spline, 0);
  EXPECT_EQ(s.pdf_write.orientation, 0);
  EXPECT_EQ(s.window.less_bytes, 1);
  EXPECT_EQ(s.window.more_bytes, 3);
  EXPECT_EQ(s.svg_read.size, 1);
  EXPECT_EQ(s.vec.dxf_dwg_units, 1);
  EXPECT_EQ(s.main.icons_list_details, 0);
  EXPECT_EQ(s.jpg.color_space, 4);
  EXPECT_EQ(s.jpg.quality, 80);
  EXPECT_EQ(s.jpg.size, 50);
  EXPECT_EQ(s.tif.compression, 0);
  EXPECT_EQ(s.save.save_path_option, 3);
  EXPECT_EQ(s.thumbnails.resize_type, 3);
  EXPECT_EQ(s.thumbnail_sets[0].resize_type, 3);
  EXPECT_EQ(s.png.color_red, 44);
  EXPECT_EQ(s.png.color_green, 255);
  EXPECT_EQ(s.png.color_blue, 255);

  TMainSettings high = ReadText("[Multipage]\nOption=9\n[Colors]\nOption=2\n");
  EXPECT_EQ(high.multipage.option, 4);
  for (int v = 1; v <= 4; ++v) EXPECT_EQ(high.multipage.option_flags.Is(v), v == 4) << v;
  for (int v = 1; v <= 3; ++v) EXPECT_EQ(high.colors.option_flags.Is(v), v == 2) << v;
}

TEST(SettingsFile, OptionsAreWrittenFromFlagsLastSetWins) {
  TMainSettings s = Defaults();
  s.multipage.option_flags.Select(2);
  s.multipage.option_flags.SetFlag(4, true);
  s.colors.option_flags.Select(0);  // none set
  s.dpi.option_flags.Select(2);
  s.dpi.option = 1;  // the flags, not the integer, decide
  MemIniFile ini;
  ASSERT_TRUE(s.write_ini_settings(ini, 2).ok());
  EXPECT_EQ(ini.ReadString("Multipage", "Option", ""), "4");
  EXPECT_EQ(ini.ReadString("Colors", "Option", ""), "1");
  EXPECT_EQ(ini.ReadString("DPI", "Option", ""), "2");
}

TEST(SettingsFile, ListsReadCountFirstWithTheirOwnFallbacks) {
  TMainSettings s = ReadText(
      "[CustomPlaces]\nCount=2\nName1=Home\nFolder2=/x\n"
      "[Places]\nCount=1\n[PLT]\nPens_Count=2\nPen_num_1=3\n[SVG]\nCount=-1\nFont1_1=Arial\n");
  ASSERT_EQ(s.custom_places.size(), 2u);
  EXPECT_EQ(s.custom_places[0].name, "Home");
  EXPECT_EQ(s.custom_places[0].option, 2);
  EXPECT_EQ(s.custom_places[1].folder, "/x");
  ASSERT_EQ(s.places.size(), 1u);
  EXPECT_EQ(s.places[0].custom_ind, 2);
  ASSERT_EQ(s.plt.pens.size(), 2u);
  EXPECT_EQ(s.plt.pens[0].num, 3);
  EXPECT_EQ(s.plt.pens[1].width, "0.4");
  EXPECT_EQ(s.plt.pens[1].color, "rgb(0,0,0)");
  EXPECT_TRUE(s.svg.fonts.empty());

  TMainSettings huge = ReadText("[PLT]\nPens_Count=2000000000\nPen_num_1000=7\n");
  ASSERT_EQ(huge.plt.pens.size(), 1000u);
  EXPECT_EQ(huge.plt.pens.back().num, 7);
}

TEST(SettingsFile, DamagedFilesStillGiveClampedSettings) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("damaged.cfg");
  TMainSettings source = NonDefaultSettings();
  MemIniFile ini;
  ASSERT_TRUE(source.write_ini_settings(ini, 1).ok());
  const std::string whole = platform::EncodeUtf16LEWithBom(ini.ToText());
  std::mt19937 random(20261122);
  for (int round = 0; round < 200; ++round) {
    std::string bytes = whole.substr(0, random() % (whole.size() + 1));
    for (int k = 0; k < 8 && !bytes.empty(); ++k)
      bytes[random() % bytes.size()] = static_cast<char>(random() & 0xFF);
    ASSERT_TRUE(platform::WriteFileAtomic(path, bytes).ok());
    TMainSettings s = Defaults();
    (void)s.read_ini_settings(path);
    ASSERT_GE(s.multipage.option, 1);
    ASSERT_LE(s.multipage.option, 4);
    ASSERT_GE(s.multipage.group, 1);
    ASSERT_TRUE(s.multipage.option_flags.Is(s.multipage.option));
    ASSERT_TRUE(s.colors.option_flags.Is(s.colors.option));
    ASSERT_TRUE(s.dpi.option_flags.Is(s.dpi.option));
    ASSERT_GE(s.dxf_write.version, 1);
    ASSERT_LE(s.dxf_write.version, 8);
    ASSERT_LE(s.thumbnail_sets[0].resize_type, 3);
    ASSERT_EQ(s.thumbnail_set_count, 5);
  }
}

}  // namespace
}  // namespace pictavo::settings
