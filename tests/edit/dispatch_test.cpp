#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "edit/action_table.h"

namespace pictavo::editing {
namespace {

// The order in which the dispatcher tests keys, as the front end's action list defines it.
const std::vector<std::string_view> kExpectedOrder = {"exposure",
                                                      "upscale",
                                                      "auto_contrast",
                                                      "point",
                                                      "line",
                                                      "rectangle",
                                                      "ellipse",
                                                      "stylize",
                                                      "auto_rotate",
                                                      "auto_crop",
                                                      "split",
                                                      "auto_colors",
                                                      "invert",
                                                      "square",
                                                      "canvas_size",
                                                      "resize",
                                                      "canvas_size2",
                                                      "resize2",
                                                      "bc",
                                                      "gamma",
                                                      "blur",
                                                      "add_border",
                                                      "color_replace",
                                                      "crop",
                                                      "hue_sat",
                                                      "hls",
                                                      "hsv",
                                                      "mirror",
                                                      "rgb",
                                                      "rotate",
                                                      "add_shadow",
                                                      "add_shadow2",
                                                      "sharpen",
                                                      "auto_sharp",
                                                      "auto_white",
                                                      "white_balance",
                                                      "unsharp_mask",
                                                      "remove_noise",
                                                      "convert_to_black_white",
                                                      "CHANGE_TO",
                                                      "CHANGE_TO_2",
                                                      "CHANGE_TO_4",
                                                      "CHANGE_TO_8",
                                                      "CHANGE_TO_16",
                                                      "CHANGE_TO_32",
                                                      "CHANGE_TO_64",
                                                      "CHANGE_TO_128",
                                                      "CHANGE_TO_256",
                                                      "CHANGE_TO_TRUE",
                                                      "CHANGE_TO_GRAY",
                                                      "CHANGE_TO_GRAY24",
                                                      "CHANGE_TO_HIGH",
                                                      "CHANGE_TO_NEGATIVE",
                                                      "remove_distortion",
                                                      "jpeg_repair",
                                                      "photo_filter",
                                                      "replace_background",
                                                      "gaussian_blur",
                                                      "split_blur",
                                                      "color_noise",
                                                      "mono_noise",
                                                      "antialias",
                                                      "fisheye",
                                                      "lightness",
                                                      "darkness",
                                                      "mosaic",
                                                      "twist",
                                                      "tile",
                                                      "trace",
                                                      "solorize",
                                                      "posterize",
                                                      "ripple_random",
                                                      "ripple_tooth",
                                                      "ripple_triangle",
                                                      "spray",
                                                      "static_background",
                                                      "watermark",
                                                      "text_watermark",
                                                      "watermark2",
                                                      "text_watermark2",
                                                      "watermark3",
                                                      "transparency"};

TEST(ActionTable, RowsInDispatchOrderWithTheirCounts) {
  const auto table = ActionTable();
  ASSERT_EQ(table.size(), kExpectedOrder.size());
  for (size_t i = 0; i < table.size(); ++i) EXPECT_EQ(table[i].key, kExpectedOrder[i]) << i;

  const auto row = [&](std::string_view key) -> const ActionRow& {
    for (const ActionRow& r : table)
      if (r.key == key) return r;
    throw std::runtime_error("no row");
  };
  struct Case {
    std::string_view key;
    std::vector<int> accepted;
  };
  const Case fixed[] = {{"exposure", {1}},    {"upscale", {1, 2}},    {"auto_contrast", {0}},
                        {"point", {8}},       {"line", {9}},          {"rectangle", {13}},
                        {"ellipse", {13}},    {"stylize", {1}},       {"auto_rotate", {5, 6}},
                        {"resize", {6}},      {"add_border", {5, 6}}, {"CHANGE_TO", {1}},
                        {"transparency", {3}}};
  for (const Case& c : fixed)
    for (int n = -1; n <= 21; ++n) {
      const bool want = std::find(c.accepted.begin(), c.accepted.end(), n) != c.accepted.end();
      EXPECT_EQ(AcceptsCount(row(c.key), n), want) << c.key << " with " << n;
    }
  for (std::string_view any : {"crop", "watermark", "static_background", "bc", "CHANGE_TO_256"})
    EXPECT_TRUE(AcceptsCount(row(any), 21)) << any;
  // Only the colour-depth family reads the upper-cased name.
  for (const ActionRow& r : table)
    EXPECT_EQ(r.reading == KeyReading::kUpperName, r.key.starts_with("CHANGE_TO")) << r.key;
}

TEST(ActionTable, DisplayNamesIncludingTheUnusedCanvasSize3) {
  EXPECT_EQ(DisplayNameOf("canvas_size3"), "Canvas Size");
  EXPECT_EQ(DisplayNameOf("Auto_Sharp"), "Sharpen");
  EXPECT_EQ(DisplayNameOf("change_to_256"), "Color Depth");
  EXPECT_EQ(DisplayNameOf("solorize"), "Solorize");
  EXPECT_EQ(DisplayNameOf("exposure"), "");       // no display name
  EXPECT_EQ(DisplayNameOf("auto_contrast"), "");  // no display name
  EXPECT_EQ(DisplayNameOf("transparency"), "");
  EXPECT_EQ(DisplayNameOf("null"), "");
}

// A recording table: each routine notes that it ran and returns what the test asks.
std::vector<std::string> g_ran;  // test-only; the tests run single-threaded
int g_return = 0;
const ActionRow kRecording[] = {
    {"first", KeyReading::kLowerKey, Counts({2}),
     [](ActionContext&, const Script_com&) { return g_ran.push_back("first"), g_return; }},
    {"strict", KeyReading::kLowerKey, kAnyCount,
     [](ActionContext&, const Script_com& c) {
       g_ran.push_back("strict");
       return StrToIntStrict(c.params[0]) > 0 ? 0 : 1;
     }},
    {"throws", KeyReading::kLowerKey, kAnyCount,
     [](ActionContext&, const Script_com&) -> int {
       g_ran.push_back("throws");
       throw std::runtime_error("inside the routine");
     }},
    {"CHANGE_TO_256", KeyReading::kUpperName, kAnyCount,
     [](ActionContext&, const Script_com&) { return g_ran.push_back("c256"), 0; }},
};

TEST(Dispatch, CountsCaseAndFailuresOnARecordingTable) {
  ActionContext ctx;
  const auto run = [&](std::string_view line) {
    g_ran.clear();
    return Dispatch(kRecording, ctx, ParseLine(line));
  };
  g_return = 0;
  EXPECT_TRUE(run("FIRST(1;2)"));  // lower-cased key
  EXPECT_EQ(g_ran, std::vector<std::string>{"first"});
  EXPECT_FALSE(run("first(1)"));  // count not accepted: nothing runs
  EXPECT_TRUE(g_ran.empty());
  g_return = 7;
  EXPECT_FALSE(run("first(1;2)"));   // the routine reports failure
  EXPECT_FALSE(run("strict(12a)"));  // malformed number
  EXPECT_EQ(g_ran, std::vector<std::string>{"strict"});
  EXPECT_TRUE(run("strict(3)"));
  EXPECT_FALSE(run("throws"));
  EXPECT_TRUE(run("change_to_256(1)"));  // upper-cased name
  EXPECT_EQ(g_ran, std::vector<std::string>{"c256"});
  EXPECT_FALSE(run("// first(1;2)"));
  EXPECT_TRUE(g_ran.empty());
  EXPECT_FALSE(run("first()"));
  EXPECT_TRUE(g_ran.empty());
  EXPECT_EQ(MatchRow(kRecording, ParseLine("Strict(1)")), &kRecording[1]);
  EXPECT_EQ(MatchRow(kRecording, ParseLine("unknown(1)")), nullptr);
}

TEST(Dispatch, RealTableRecognisesKeysInAnyCase) {
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(4, 4, imaging::TIEPixelFormat::ie24RGB).ok());
  bmp.Fill(0x404040);
  ActionContext ctx;
  ctx.bmp = &bmp;
  EXPECT_TRUE(Dispatch(ActionTable(), ctx, ParseLine("Exposure(10)")));
  EXPECT_TRUE(Dispatch(ActionTable(), ctx, ParseLine("change_to_256(1)")));
  EXPECT_EQ(bmp.PixelFormat(), imaging::TIEPixelFormat::ie8p);
  EXPECT_FALSE(Dispatch(ActionTable(), ctx, ParseLine("bc")));    // 0 parameters: p1 is ""
  EXPECT_FALSE(Dispatch(ActionTable(), ctx, ParseLine("bc()")));  // malformed
  EXPECT_FALSE(Dispatch(ActionTable(), ctx, ParseLine("(bc)")));
  EXPECT_FALSE(Dispatch(ActionTable(), ctx, ParseLine("auto_rotate(1;0;10;0)")));
}

}  // namespace
}  // namespace pictavo::editing
