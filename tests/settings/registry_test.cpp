#include <gtest/gtest.h>

#include "platform/registry_store.h"
#include "settings/main_settings.h"
#include "settings_test_util.h"
#include "tests/support/test_paths.h"

namespace pictavo::settings {
namespace {

constexpr std::string_view kKey = TMainSettings::kRegistryKey;

TMainSettings Defaults() {
  TMainSettings s;
  s.SetDefault();
  return s;
}

TEST(RegistrySettings, EveryKeyRoundTripsThroughTheStoreFile) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("registry.reg");
  TMainSettings original = test_util::NonDefaultSettings();
  {
    platform::RegistryStore store(path);
    TMainSettings copy = original;
    copy.write_reg_settings(store);
    ASSERT_TRUE(store.Save().ok());
  }
  platform::RegistryStore loaded(path);
  ASSERT_TRUE(loaded.Load().ok());
  TMainSettings back = Defaults();
  back.read_reg_settings(loaded);
  EXPECT_EQ(test_util::Dump(back), test_util::Dump(original));
  EXPECT_EQ(back.thumbnails.ext, original.thumbnail_sets[0].ext);

  // Value names that do not follow Section + "_" + Key, and their types.
  using T = platform::RegistryStore::ValueType;
  for (const char* name : {"Extension1",
                           "Extension6",
                           "CustomPlaces_Count",
                           "CustomPlace2_Name",
                           "CustomPlace1_Subfolder",
                           "Places_Count",
                           "Place2_Custom_ind",
                           "Place1_Type",
                           "SVG_Font1_1",
                           "SVG_Font2_2",
                           "PLT_Pen_num_1",
                           "PLT_Pen_width_2",
                           "PLT_Pen_color_1",
                           "Thumbnails_3_Jpg_q",
                           "Thumbnails_Mask",
                           "Context_menu_On",
                           "JPG_Quality",
                           "Main_Dest_path",
                           "Save_Overwrite",
                           "PDF_write_owner_password",
                           "Multipage_Option",
                           "Main_default_local_option",
                           "SVG_Read_Size",
                           "DXF_Write_Version",
                           "DWG_Write_Text",
                           "EXR_HDR_True_Color",
                           "Save_Same_date"})
    EXPECT_TRUE(loaded.TypeOf(kKey, name).has_value()) << name;
  EXPECT_FALSE(loaded.TypeOf(kKey, "Window_Extension1").has_value());
  EXPECT_FALSE(loaded.TypeOf(kKey, "Thumbnails_Count_more").has_value());
  EXPECT_EQ(loaded.TypeOf(kKey, "Main_Same_as_source"), T::kDword);
  EXPECT_EQ(loaded.TypeOf(kKey, "PNG_Color_red"), T::kDword);
  EXPECT_EQ(loaded.TypeOf(kKey, "Main_Language"), T::kString);
}

TEST(RegistrySettings, EmptyStringsAndWrongTypesKeepTheCurrentValue) {
  platform::RegistryStore store("");
  store.WriteString(kKey, "Main_File_mask", "");
  store.WriteString(kKey, "JPG_Quality", "95");  // a number stored as text
  store.WriteDword(kKey, "Main_Language", 3);    // text stored as a number
  store.WriteDword(kKey, "Multipage_Option", 9);
  store.WriteDword(kKey, "Colors_Option", 0);
  store.WriteDword(kKey, "PNG_Color_red", 300);
  store.WriteDword(kKey, "DXF_write_Version", 0);  // only the file reader clamps this
  store.WriteDword(kKey, "Main_Same_as_source", 7);
  TMainSettings s = Defaults();
  s.read_reg_settings(store);
  EXPECT_EQ(s.main.file_mask, "*");
  EXPECT_EQ(s.jpg.quality, 80);
  EXPECT_EQ(s.main.language, "english");
  EXPECT_EQ(s.multipage.option, 4);
  EXPECT_TRUE(s.multipage.option_flags.Is(4));
  EXPECT_EQ(s.colors.option, 1);
  EXPECT_EQ(s.png.color_red, 44);
  EXPECT_EQ(s.dxf_write.version, 0);
  EXPECT_TRUE(s.main.same_as_source);
}

TEST(RegistrySettings, MissingKeyReadsNothing) {
  platform::RegistryStore store("");
  store.WriteDword("Software\\Velmora\\Other", "JPG_Quality", 10);
  TMainSettings s = Defaults();
  s.jpg.quality = 33;
  s.read_reg_settings(store);
  EXPECT_EQ(s.jpg.quality, 33);
}

}  // namespace
}  // namespace pictavo::settings
