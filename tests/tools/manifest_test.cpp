#include "engine/tools/tool_manifest.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/test_paths.h"

namespace pictavo::tools {
namespace {

TEST(Manifest, EmbeddedCopyIsTheRepositoryFileAndParses) {
  std::ifstream in(pictavo::testing::SourceDir() + "/utl/manifest.tsv", std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), EmbeddedManifest());
  std::vector<ToolRow> rows;
  Status s = ParseManifest(EmbeddedManifest(), rows);
  ASSERT_TRUE(s.ok()) << s.message();
  EXPECT_EQ(rows.size(), ManifestRows().size());
}

// Every tool the engine's command lines name must have a row, so none goes missing unreported.
TEST(Manifest, NamesEveryToolTheEngineUses) {
  for (const char* name : {"pdfpsai.bin",
                           "convert.bin",
                           "f300_uni.exe",
                           "colorist.exe",
                           "exiftool.exe",
                           "pdfmerge.bin",
                           "epstool.exe",
                           "png2swf.bin",
                           "tovec1.bin",
                           "dxf_size.exe",
                           "up/up.exe",
                           "AdobeRGB1998.icc",
                           "7za.bin",
                           "wmopener.exe",
                           "ogr/ogr2ogr.exe",
                           "webp_write.bin",
                           "avifenc.exe",
                           "avifdec.exe",
                           "djvu_read.bin",
                           "raw_read.bin",
                           "libtiff/tiff2rgba.exe",
                           "vips/vips.exe",
                           "assimp64/assimp.exe",
                           "ffmpeg.exe",
                           "text2pdf.exe",
                           "pcl6.exe",
                           "gxpswin32.exe",
                           "pdf2vec.bin",
                           "uni/uniconvertor.cmd",
                           "vec2vec_direct.bin",
                           "sc/sc.exe",
                           "hdr_read.bin",
                           "bpgenc.bin",
                           "flif.exe",
                           "pdfa_def.ps",
                           "qoiconv.exe",
                           "texconv.exe",
                           "fits.exe",
                           "dcm_read_new.bin",
                           "ntf/ntf_read.bin",
                           "kap_read.bin",
                           "MakeWPG.exe",
                           "pngoptim.bin",
                           "cpc_read.exe",
                           "cmp_read.bin",
                           "pdn2bmp.bin"})
    EXPECT_NE(FindTool(name), nullptr) << name;
}

TEST(Manifest, RejectsMalformedRows) {
  std::vector<ToolRow> rows;
  EXPECT_FALSE(ParseManifest("a.bin\tlink\tgs\tghostscript\t-\t-\n", rows).ok());  // 6 fields
  EXPECT_FALSE(ParseManifest("a.bin\tmagic\tgs\tghostscript\t-\t-\tx\n", rows).ok());
  EXPECT_FALSE(ParseManifest("a.bin\tlink\tgs,qpdf\tghostscript\t-\t-\tx\n", rows).ok());
  EXPECT_FALSE(ParseManifest("a.bin\tlink\t-\t-\t-\t-\tx\n", rows).ok());
  EXPECT_FALSE(ParseManifest("a\tabsent\t-\t-\t-\t-\tx\na\tabsent\t-\t-\t-\t-\ty\n", rows).ok());
  ASSERT_TRUE(
      ParseManifest("# c\n\nx/a.exe\tadapter\tgs,unar?\tghostscript,unar\tps;pdf\t-\tz\r\n", rows)
          .ok());
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].kind, ToolKind::kAdapter);
  EXPECT_TRUE(rows[0].programs[1].optional);
  EXPECT_EQ(rows[0].programs[1].program, "unar");
  EXPECT_EQ(rows[0].reads, (std::vector<std::string>{"ps", "pdf"}));
  EXPECT_TRUE(rows[0].writes.empty());
}

TEST(Manifest, MessagesNameThePackage) {
  EXPECT_EQ(MissingToolMessage("pdfmerge.bin"), "tool \"pdfmerge.bin\" is missing: install qpdf");
  EXPECT_EQ(MissingToolMessage("text2pdf.exe"),
            "tool \"text2pdf.exe\" is missing: install enscript ghostscript");
  EXPECT_EQ(MissingToolMessage("pcl6.exe"), "tool \"pcl6.exe\" is not available on this platform");
}

// The built tool folder agrees with the manifest: what is there works, nothing absent is faked.
TEST(Manifest, BuiltToolFolderHoldsNoStubs) {
  const std::string utl = pictavo::testing::BuildDir() + "/utl/";
  if (!std::filesystem::exists(utl)) GTEST_SKIP() << "the tool folder is not built";
  for (const ToolRow& row : ManifestRows()) {
    ToolState state = InspectTool(row, utl);
    if (row.kind == ToolKind::kAbsent) {
      EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(utl + row.name)))
          << row.name << " is absent on this platform but the folder holds something";
      continue;
    }
    if (!state.present) continue;  // its program is not installed here
    if (row.kind == ToolKind::kLink)
      EXPECT_EQ(std::filesystem::read_symlink(utl + row.name).filename(), row.programs[0].program)
          << row.name;
    if (row.kind == ToolKind::kAdapter)
      EXPECT_EQ(std::filesystem::path(state.resolves_to).filename(), "pictavo_adapter") << row.name;
  }
}

}  // namespace
}  // namespace pictavo::tools
