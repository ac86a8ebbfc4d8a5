// Result inspection against independent readers: every count that Inspect gives is compared with
// what another program (pdfinfo, Ghostscript, ezdxf, Python's XML parser, ImageMagick, assimp,
// GDAL) says about the same file, and cut or misnamed copies must be refused.
#include "verify/content.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/test_paths.h"

namespace pictavo::verify {
namespace {

namespace fs = std::filesystem;
using pictavo::testing::TempDir;

bool HaveProgram(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

#define REQUIRE_PROGRAM(program, package) \
  if (!HaveProgram(program))              \
  GTEST_SKIP() << "program " << (program) << " is missing: install the Debian package " << (package)

// Debian's own Python, which has the python3-* packages.
constexpr char kPython[] = "/usr/bin/python3";
#define REQUIRE_PYTHON_MODULE(module, package)                                                  \
  if (std::system((std::string(kPython) + " -c 'import " module "' 2>/dev/null").c_str()) != 0) \
  GTEST_SKIP() << "Python module " module " is missing: install the Debian package " << (package)

int Sh(const std::string& command) {
  return std::system(command.c_str());
}

// Standard output of a shell command.
std::string Capture(const std::string& command) {
  std::string text;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
    pclose(pipe);
  }
  return text;
}

std::string Q(const std::string& path) {
  return "'" + path + "'";
}

std::string Utl() {
  return pictavo::testing::BuildDir() + "/utl/";
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// A copy of the first `keep` bytes of `from`.
std::string Cut(const TempDir& dir, const std::string& from, size_t keep, const std::string& name) {
  WriteAll(dir.file(name), ReadAll(from).substr(0, keep));
  return dir.file(name);
}

Content InspectIn(const TempDir& dir, const std::string& file, const std::string& ext) {
  return Inspect(file, ext, Utl(), dir.path().string());
}

std::string WritePostScript(const TempDir& dir, int pages) {
  std::string ps = "%!PS\n/Helvetica findfont 24 scalefont setfont\n";
  for (int p = 1; p <= pages; ++p)
    ps += "72 700 moveto (Page " + std::to_string(p) +
          ") show 72 600 moveto 300 500 lineto stroke "
          "showpage\n";
  WriteAll(dir.file("src.ps"), ps);
  return dir.file("src.ps");
}

TEST(Inspect, MissingEmptyFolderAndUnknownTypes) {
  TempDir dir;
  EXPECT_FALSE(InspectIn(dir, dir.file("none.pdf"), "pdf").opened.ok());
  WriteAll(dir.file("empty.png"), "");
  const Content empty = InspectIn(dir, dir.file("empty.png"), "png");
  EXPECT_FALSE(empty.opened.ok());
  EXPECT_NE(empty.opened.message().find("empty"), std::string::npos);
  EXPECT_FALSE(InspectIn(dir, dir.path().string(), "pdf").opened.ok()) << "a folder is no PDF";

  WriteAll(dir.file("x.foo"), "data");
  const Content unknown = InspectIn(dir, dir.file("x.foo"), "foo");
  EXPECT_FALSE(unknown.known);
  EXPECT_TRUE(unknown.opened.ok());
  EXPECT_EQ(unknown.pages, -1);
}

TEST(Pdf, PageCountAgreesWithPdfinfoAndCutFilesAreRefused) {
  REQUIRE_PROGRAM("gs", "ghostscript");
  REQUIRE_PROGRAM("pdfinfo", "poppler-utils");
  TempDir dir;
  const std::string pdf = dir.file("three.pdf");
  ASSERT_EQ(Sh("gs -q -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOutputFile=" + Q(pdf) + " " +
               Q(WritePostScript(dir, 3))),
            0);
  const auto pdfinfo_pages = [](const std::string& file) {
    return std::atoi(Capture("pdfinfo " + Q(file) + " | sed -n 's/^Pages: *//p'").c_str());
  };
  const Content c = InspectIn(dir, pdf, "PDF");  // the case of the type does not matter
  ASSERT_TRUE(c.opened.ok()) << c.opened.message();
  EXPECT_TRUE(c.known);
  EXPECT_EQ(c.pages, 3);
  EXPECT_EQ(c.pages, pdfinfo_pages(pdf));

  const std::string half = Cut(dir, pdf, fs::file_size(pdf) / 2, "half.pdf");
  const Content cut = InspectIn(dir, half, "pdf");
  EXPECT_FALSE(cut.opened.ok());
  EXPECT_NE(cut.opened.message().find("cut short"), std::string::npos) << cut.opened.message();
  const Content ps = InspectIn(dir, dir.file("src.ps"), "pdf");
  EXPECT_EQ(ps.opened.message(), "not a PDF file: no %PDF header");

  PICTAVO_REQUIRE_CORPUS(multi, "special/multi_page_17.pdf");
  EXPECT_EQ(InspectIn(dir, multi, "pdf").pages, pdfinfo_pages(multi));

  // Pages inside encrypted object streams: only pdfinfo can count them. Without the tool the
  // count is unknown, and the file is not refused for that.
  REQUIRE_PROGRAM("qpdf", "qpdf");
  PICTAVO_REQUIRE_TOOL("pdfinfo.bin", "poppler-utils");
  const std::string sealed = dir.file("sealed.pdf");
  ASSERT_EQ(
      Sh("qpdf --object-streams=generate --encrypt '' owner 256 -- " + Q(pdf) + " " + Q(sealed)),
      0);
  EXPECT_EQ(InspectIn(dir, sealed, "pdf").pages, pdfinfo_pages(sealed));
  fs::create_directory(dir.file("no tools"));
  const Content bare = Inspect(sealed, "pdf", dir.file("no tools/"), dir.path().string());
  EXPECT_TRUE(bare.opened.ok());
  EXPECT_EQ(bare.pages, -1);
}

TEST(PostScript, DscPagesAgreeWithTheInterpreterAndCutFilesAreRefused) {
  REQUIRE_PROGRAM("gs", "ghostscript");
  TempDir dir;
  const std::string src = WritePostScript(dir, 3), ps = dir.file("out.ps");
  ASSERT_EQ(Sh("gs -q -dBATCH -dNOPAUSE -sDEVICE=ps2write -sOutputFile=" + Q(ps) + " " + Q(src)),
            0);
  // The bbox device reports one bounding box per page it runs.
  const std::string boxes = Capture("gs -q -dBATCH -dNOPAUSE -sDEVICE=bbox " + Q(ps) + " 2>&1");
  int interpreted = 0;
  for (size_t at = boxes.find("%%BoundingBox"); at != std::string::npos;
       at = boxes.find("%%BoundingBox", at + 1))
    ++interpreted;
  const Content c = InspectIn(dir, ps, "ps");
  ASSERT_TRUE(c.opened.ok()) << c.opened.message();
  EXPECT_EQ(c.pages, interpreted);
  EXPECT_EQ(c.pages, 3);

  // Cut inside the last page, and inside the prolog before any page.
  const std::string text = ReadAll(ps);
  const size_t last_page = text.find("%%Page: 3");
  ASSERT_NE(last_page, std::string::npos);
  for (const size_t keep : {last_page + 200, last_page / 2}) {
    const Content cut = InspectIn(dir, Cut(dir, ps, keep, "cut.ps"), "ps");
    EXPECT_FALSE(cut.opened.ok()) << "kept " << keep << " bytes";
  }

  const std::string eps = dir.file("one.eps");
  ASSERT_EQ(Sh("gs -q -dBATCH -dNOPAUSE -dLastPage=1 -sDEVICE=eps2write -sOutputFile=" + Q(eps) +
               " " + Q(src)),
            0);
  EXPECT_EQ(InspectIn(dir, eps, "eps").pages, 1);
  WriteAll(dir.file("text.ps"), "hello\n");
  EXPECT_FALSE(InspectIn(dir, dir.file("text.ps"), "ps").opened.ok());
}

// ezdxf writes the drawings (ASCII and binary) and, reading them back, gives the expected counts:
// the modelspace entities plus those of every block that an INSERT reaches, and the entities by
// layer.
TEST(Dxf, EntityAndLayerCountsAgreeWithEzdxf) {
  REQUIRE_PYTHON_MODULE("ezdxf", "python3-ezdxf");
  TempDir dir;
  WriteAll(dir.file("make.py"), R"(import sys, ezdxf
for version, name in (("R2010", "a"), ("R12", "r12")):
    doc = ezdxf.new(version)
    msp = doc.modelspace()
    for i in range(7):
        msp.add_line((i, 0), (i, 5), dxfattribs={"layer": "Walls"})
    for i in range(4):
        msp.add_circle((i, i), 1 + i, dxfattribs={"layer": "Holes"})
    msp.add_polyline3d([(0, 0, 0), (1, 0, 1), (1, 1, 2)])  # POLYLINE, VERTEX..., SEQEND
    nut = doc.blocks.new("Nut")
    nut.add_circle((0, 0), 0.5)
    bolt = doc.blocks.new("Bolt")
    bolt.add_line((-1, 0), (1, 0))
    bolt.add_blockref("Nut", (0, 0))
    doc.blocks.new("Unused").add_line((0, 0), (1, 1))
    msp.add_blockref("Bolt", (10, 10))
    msp.add_blockref("Bolt", (20, 10))
    doc.saveas(sys.argv[1] + "/" + name + ".dxf")
    if version == "R2010":
        doc.saveas(sys.argv[1] + "/bin.dxf", fmt="bin")
# A file with nothing but its header.
text = open(sys.argv[1] + "/a.dxf").read().split("\n")
end = text.index("ENDSEC")
open(sys.argv[1] + "/header.dxf", "w").write("\n".join(text[: end + 1] + ["  0", "EOF", ""]))
)");
  WriteAll(dir.file("count.py"), R"(import sys, ezdxf
doc = ezdxf.readfile(sys.argv[1])
msp = doc.modelspace()
total, reached = len(msp), set()
pending = [e.dxf.name for e in msp.query("INSERT")]
while pending:
    name = pending.pop()
    if name in reached:
        continue
    reached.add(name)
    block = doc.blocks.get(name)
    total += len(block)
    pending += [e.dxf.name for e in block.query("INSERT")]
print(total)
for layer in sorted({e.dxf.layer for e in msp}):
    print(layer, len(msp.query('*[layer=="%s"]' % layer)))
)");
  ASSERT_EQ(Sh(std::string(kPython) + " " + Q(dir.file("make.py")) + " " + Q(dir.path().string())),
            0);
  for (const std::string name : {"a.dxf", "r12.dxf", "bin.dxf"}) {
    SCOPED_TRACE(name);
    const Content c = InspectIn(dir, dir.file(name), "dxf");
    ASSERT_TRUE(c.opened.ok()) << c.opened.message();
    std::ostringstream mine;
    mine << c.entities << "\n";
    std::map<std::string, int64_t> layers;
    for (const LayerCount& l : c.layers) layers[l.name] = l.features;
    for (const auto& [layer, n] : layers) mine << layer << " " << n << "\n";
    // bin.dxf is read back from its ASCII twin: ezdxf counts the same drawing either way.
    const std::string ascii = name == "bin.dxf" ? "a.dxf" : name;
    EXPECT_EQ(mine.str(), Capture(std::string(kPython) + " " + Q(dir.file("count.py")) + " " +
                                  Q(dir.file(ascii))));
  }
  const Content header = InspectIn(dir, dir.file("header.dxf"), "dxf");
  EXPECT_TRUE(header.opened.ok()) << header.opened.message();
  EXPECT_EQ(header.entities, 0);

  for (const std::string name : {"a.dxf", "bin.dxf"}) {
    const Content cut = InspectIn(
        dir, Cut(dir, dir.file(name), fs::file_size(dir.file(name)) * 3 / 4, "cut.dxf"), "dxf");
    EXPECT_FALSE(cut.opened.ok()) << name;
    EXPECT_NE(cut.opened.message().find("cut short"), std::string::npos) << cut.opened.message();
  }
  WriteAll(dir.file("text.dxf"), "  0\nLINE\n  8\n0\n  0\nEOF\n");
  EXPECT_EQ(InspectIn(dir, dir.file("text.dxf"), "dxf").opened.message(),
            "not a DXF file: no SECTION");
}

// Python's XML parser counts the same drawing elements outside definitions.
TEST(Svg, DrawingElementsAgreeWithAnXmlParser) {
  PICTAVO_REQUIRE_CORPUS(diagram, "vector/svg/diagram.svg");
  PICTAVO_REQUIRE_CORPUS(markers, "vector/svg/markers.svg");
  PICTAVO_REQUIRE_CORPUS(text_path, "vector/svg/text-on-path.svg");
  PICTAVO_REQUIRE_CORPUS(tiger, "vector/svg/tiger.svgz");
  REQUIRE_PROGRAM("gzip", "gzip");
  TempDir dir;
  WriteAll(dir.file("count.py"), R"(import sys, gzip, xml.etree.ElementTree as ET
DRAW = {"path", "rect", "circle", "ellipse", "line", "polyline", "polygon", "text", "image", "use"}
HIDE = {"defs", "symbol", "clipPath", "mask", "marker", "pattern", "metadata", "foreignObject",
        "title"}
def walk(element, hidden):
    n = 0
    for child in element:
        name = child.tag.rsplit("}", 1)[-1] if isinstance(child.tag, str) else ""
        n += (not hidden and name in DRAW) + walk(child, hidden or name in HIDE)
    return n
data = open(sys.argv[1], "rb").read()
print(walk(ET.fromstring(gzip.decompress(data) if data[:2] == b"\x1f\x8b" else data), False))
)");
  for (const std::string& file : {diagram, markers, text_path, tiger}) {
    SCOPED_TRACE(file);
    const std::string ext = file.substr(file.rfind('.') + 1);
    const Content c = InspectIn(dir, file, ext);
    ASSERT_TRUE(c.opened.ok()) << c.opened.message();
    EXPECT_EQ(c.pages, 1);
    EXPECT_EQ(std::to_string(c.entities) + "\n",
              Capture(std::string(kPython) + " " + Q(dir.file("count.py")) + " " + Q(file)));
  }
  ASSERT_EQ(Sh("gzip -c " + Q(markers) + " > " + Q(dir.file("m.svgz"))), 0);
  EXPECT_EQ(InspectIn(dir, dir.file("m.svgz"), "svgz").entities,
            InspectIn(dir, markers, "svg").entities);
  EXPECT_FALSE(InspectIn(dir, Cut(dir, markers, 5000, "cut.svg"), "svg").opened.ok());
  EXPECT_FALSE(
      InspectIn(dir, Cut(dir, dir.file("m.svgz"), fs::file_size(dir.file("m.svgz")) / 2, "c.svgz"),
                "svgz")
          .opened.ok());
  WriteAll(dir.file("page.svg"), "<!DOCTYPE html>\n<html><body><svg></svg></body></html>\n");
  EXPECT_EQ(InspectIn(dir, dir.file("page.svg"), "svg").opened.message(),
            "not an SVG file: the root element is <html>");
}

TEST(Hpgl, DrawCommandsFollowThePenAndLabelTerminators) {
  REQUIRE_PROGRAM("pstoedit", "pstoedit");
  TempDir dir;
  // Five separate straight strokes: one pen-down move each.
  WriteAll(dir.file("lines.ps"),
           "%!PS\n1 1 5 {50 mul dup 100 moveto 200 lineto stroke} for\n"
           "showpage\n");
  ASSERT_EQ(Sh("pstoedit -q -f hpgl " + Q(dir.file("lines.ps")) + " " + Q(dir.file("l.plt")) +
               " 2>/dev/null"),
            0);
  const Content c = InspectIn(dir, dir.file("l.plt"), "plt");
  ASSERT_TRUE(c.opened.ok()) << c.opened.message();
  EXPECT_EQ(c.entities, 5);
  // The same moves with the pen never lowered draw nothing.
  std::string up = ReadAll(dir.file("l.plt"));
  for (size_t at = up.find("PD"); at != std::string::npos; at = up.find("PD", at)) up[at + 1] = 'U';
  WriteAll(dir.file("up.plt"), up);
  const Content none = InspectIn(dir, dir.file("up.plt"), "plt");
  EXPECT_TRUE(none.opened.ok());
  EXPECT_EQ(none.entities, 0);

  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  EXPECT_FALSE(InspectIn(dir, png, "plt").opened.ok());
  // Four labels, ended by ETX, by terminators that DT sets ("#") and by ETX again after "DT;";
  // a comment that mentions printing is no command.
  PICTAVO_REQUIRE_CORPUS(labels, "vector/hpgl/dt.plt");
  EXPECT_EQ(InspectIn(dir, labels, "plt").entities, 4);
}

// libwmf refuses the same files; a metafile reduced to its header and end record draws nothing.
TEST(Metafile, DrawingRecordsAndDamagedFiles) {
  PICTAVO_REQUIRE_CORPUS(santa, "vector/wmf/santa.wmf");
  PICTAVO_REQUIRE_CORPUS(bizarre, "vector/wmf/61338.wmf");
  PICTAVO_REQUIRE_CORPUS(emf, "vector/emf/test-001.emf");
  TempDir dir;
  for (const std::string& file : {santa, emf}) {
    const std::string ext = file.substr(file.size() - 3);
    const Content c = InspectIn(dir, file, ext);
    ASSERT_TRUE(c.opened.ok()) << file << ": " << c.opened.message();
    EXPECT_GT(c.entities, 0) << file;
    const Content cut = InspectIn(dir, Cut(dir, file, fs::file_size(file) / 2, "cut." + ext), ext);
    EXPECT_NE(cut.opened.message().find("cut short"), std::string::npos) << cut.opened.message();
  }
  if (HaveProgram("wmf2svg"))
    for (const std::string& file : {santa, bizarre})
      EXPECT_EQ(InspectIn(dir, file, "wmf").opened.ok(),
                Sh("wmf2svg -o " + Q(dir.file("x.svg")) + " " + Q(file) + " >/dev/null 2>&1") == 0)
          << file;

  // Placeable header (22 bytes) and metafile header (18), then META_EOF.
  const std::string wmf = ReadAll(santa);
  WriteAll(dir.file("bare.wmf"), wmf.substr(0, 40) + std::string("\x03\0\0\0\0\0", 6));
  const Content bare_wmf = InspectIn(dir, dir.file("bare.wmf"), "wmf");
  EXPECT_TRUE(bare_wmf.opened.ok()) << bare_wmf.opened.message();
  EXPECT_EQ(bare_wmf.entities, 0);
  // The header record, then EMR_EOF (no palette).
  const std::string e = ReadAll(emf);
  const uint32_t header_size = static_cast<unsigned char>(e[4]) | static_cast<unsigned char>(e[5])
                                                                      << 8;
  WriteAll(dir.file("bare.emf"),
           e.substr(0, header_size) +
               std::string("\x0e\0\0\0\x14\0\0\0\0\0\0\0\x10\0\0\0\x14\0\0\0", 20));
  const Content bare_emf = InspectIn(dir, dir.file("bare.emf"), "emf");
  EXPECT_TRUE(bare_emf.opened.ok()) << bare_emf.opened.message();
  EXPECT_EQ(bare_emf.entities, 0);
}

TEST(Raster, HeadersAgreeWithIdentifyAndCutOrMisnamedFilesAreRefused) {
  REQUIRE_PROGRAM("convert", "imagemagick");
  REQUIRE_PROGRAM("identify", "imagemagick");
  TempDir dir;
  const std::string frames = "-size 37x23 xc:red -size 37x23 xc:blue -size 37x23 plasma:";
  const std::string pattern = "-size 53x31 gradient:red-blue";
  ASSERT_EQ(Sh("convert " + frames + " " + Q(dir.file("f.tif")) + " && convert " + frames + " " +
               Q(dir.file("f.gif")) + " && convert " + pattern + " " + Q(dir.file("p.png")) +
               " && convert " + pattern + " " + Q(dir.file("p.jpg")) + " && convert " + pattern +
               " " + Q(dir.file("p.bmp")) + " && convert " + pattern + " " + Q(dir.file("p.webp"))),
            0);
  for (const std::string name : {"f.tif", "f.gif", "p.png", "p.jpg", "p.bmp", "p.webp"}) {
    SCOPED_TRACE(name);
    const std::string file = dir.file(name);
    const Content c = InspectIn(dir, file, name.substr(2));
    ASSERT_TRUE(c.opened.ok()) << c.opened.message();
    const std::string identify = Capture("identify -format '%w %h\\n' " + Q(file));
    std::istringstream first(identify);  // the first frame's size, then one line a frame
    int w = 0, h = 0, pages = 0;
    first >> w >> h;
    for (char ch : identify) pages += ch == '\n';
    EXPECT_EQ(c.width, w);
    EXPECT_EQ(c.height, h);
    EXPECT_EQ(c.pages, pages);
    // Without their last 12 bytes (a PNG's whole IEND chunk) the headers still read.
    const Content cut = InspectIn(
        dir, Cut(dir, file, fs::file_size(file) - 12, "cut." + name.substr(2)), name.substr(2));
    EXPECT_FALSE(cut.opened.ok());
  }
  const Content misnamed = InspectIn(dir, dir.file("p.png"), "jpg");
  EXPECT_FALSE(misnamed.opened.ok());
  EXPECT_NE(misnamed.opened.message().find("PNG"), std::string::npos) << misnamed.opened.message();
}

TEST(Raster, UniformOnlyWhenEveryPixelAgreesWithinTheTolerance) {
  REQUIRE_PROGRAM("convert", "imagemagick");
  TempDir dir;
  const auto make = [&](const std::string& name, const std::string& args) {
    EXPECT_EQ(Sh("convert " + args + " " + Q(dir.file(name))), 0) << name;
    return dir.file(name);
  };
  EXPECT_TRUE(RasterIsUniform(make("grey.png", "-size 64x48 xc:'#808080'")));
  EXPECT_TRUE(
      RasterIsUniform(make("grey16.png", "-size 64x48 -depth 16 xc:'#808080' -colorspace Gray")));
  const std::string dot = make("dot.png", "-size 64x48 xc:white -fill black -draw 'point 63,47'");
  EXPECT_FALSE(RasterIsUniform(dot));
  EXPECT_FALSE(RasterIsUniform(make("dot.bmp",
                                    "-size 64x48 xc:white -fill black -draw "
                                    "'point 5,40' -type bilevel")));
  EXPECT_FALSE(
      RasterIsUniform(make("dot.gif", "-size 64x48 xc:white -fill red -draw 'point 1,1'")));
  const std::string near = make("near.png",
                                "-size 64x48 xc:'#808080' -fill '#818080' -draw "
                                "'point 10,10'");
  EXPECT_TRUE(RasterIsUniform(near, 2));
  EXPECT_FALSE(RasterIsUniform(near, 0));
  // Nothing shows where every pixel is transparent, whatever the colours under it; one opaque
  // pixel on a transparent page is a drawing.
  EXPECT_TRUE(RasterIsUniform(make("clear.png",
                                   "-size 64x48 plasma: -alpha set -channel A "
                                   "-evaluate set 0 +channel")));
  EXPECT_FALSE(RasterIsUniform(make("ink.png",
                                    "-size 64x48 xc:none -fill black -draw "
                                    "'point 3,3'")));
  EXPECT_FALSE(RasterIsUniform(dir.file("missing.png")));
}

// assimp, reading the same files without post-processing, counts the same faces.
TEST(Model, FaceCountsAgreeWithAssimpAndCutFilesAreRefused) {
  REQUIRE_PROGRAM("assimp", "assimp-utils");
  PICTAVO_REQUIRE_CORPUS(obj, "3d/obj/spider.obj");
  PICTAVO_REQUIRE_CORPUS(ply_text, "3d/ply/cube.ply");
  PICTAVO_REQUIRE_CORPUS(ply_binary, "3d/ply/cube_binary.ply");
  PICTAVO_REQUIRE_CORPUS(off, "3d/off/Wuson.off");
  PICTAVO_REQUIRE_CORPUS(glb, "3d/gltf/Box.glb");
  TempDir dir;
  const std::string stl_text = dir.file("text.stl"), stl_binary = dir.file("binary.stl");
  ASSERT_EQ(Sh("assimp export " + Q(obj) + " " + Q(stl_text) +
               " -f stl >/dev/null && assimp "
               "export " +
               Q(obj) + " " + Q(stl_binary) + " -f stlb >/dev/null"),
            0);
  const auto assimp_faces = [](const std::string& file) {
    return std::atoll(Capture("assimp info " + Q(file) + " -r | sed -n 's/^Faces: *//p'").c_str());
  };
  for (const std::string& file : {stl_text, stl_binary, obj, ply_text, ply_binary, off, glb}) {
    SCOPED_TRACE(file);
    const std::string ext = file.substr(file.rfind('.') + 1);
    const Content c = InspectIn(dir, file, ext);
    ASSERT_TRUE(c.opened.ok()) << c.opened.message();
    EXPECT_GT(c.faces, 0);
    EXPECT_EQ(c.faces, assimp_faces(file));
  }
  for (const std::string& file : {stl_text, stl_binary, ply_binary, off}) {
    const std::string ext = file.substr(file.rfind('.') + 1);
    const Content cut =
        InspectIn(dir, Cut(dir, file, fs::file_size(file) * 2 / 3, "cut." + ext), ext);
    EXPECT_NE(cut.opened.message().find("cut short"), std::string::npos)
        << file << ": " << cut.opened.message();
  }
  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  EXPECT_FALSE(InspectIn(dir, png, "obj").opened.ok());
  PICTAVO_REQUIRE_TOOL("assimp64/assimp.exe", "assimp-utils");
  const Content not_a_model = InspectIn(dir, png, "glb");
  EXPECT_FALSE(not_a_model.opened.ok());
  EXPECT_EQ(not_a_model.opened.message().rfind("assimp: ", 0), 0u) << not_a_model.opened.message();
}

// Feature counts of datasets that ogr2ogr writes, against the features of their source counted
// by Python's JSON and XML readers.
TEST(Gis, LayerFeatureCountsAgreeWithTheSource) {
  REQUIRE_PROGRAM("ogr2ogr", "gdal-bin");
  PICTAVO_REQUIRE_TOOL("ogr/ogrinfo.exe", "gdal-bin");
  PICTAVO_REQUIRE_CORPUS(geojson, "gis/geojson/cycle_hire.geojson");
  PICTAVO_REQUIRE_CORPUS(gpx, "gis/gpx/test.gpx");
  TempDir dir;
  const std::string python = std::string(kPython) + " -c ";
  const int64_t features = std::atoll(
      Capture(python +
              "'import json,sys; print(len(json.load(open(sys.argv[1]))[\"features\"]))' " +
              Q(geojson))
          .c_str());
  ASSERT_GT(features, 0);
  ASSERT_EQ(Sh("ogr2ogr -f GPKG " + Q(dir.file("hire.gpkg")) + " " + Q(geojson) +
               " && ogr2ogr -f 'ESRI Shapefile' " + Q(dir.file("shapes")) + " " + Q(geojson)),
            0);
  for (const auto& [file, ext] :
       {std::pair<std::string, std::string>{dir.file("hire.gpkg"), "gpkg"},
        {dir.file("shapes"), "shp"}}) {
    const Content c = InspectIn(dir, file, ext);
    ASSERT_TRUE(c.opened.ok()) << file << ": " << c.opened.message();
    ASSERT_EQ(c.layers.size(), 1u) << file;
    EXPECT_EQ(c.layers[0].features, features) << file;
    EXPECT_EQ(c.layers[0].geometry, "Point") << file;
  }
  // A GPX file is five layers; waypoints, routes and tracks are its wpt, rte and trk elements.
  const Content g = InspectIn(dir, gpx, "gpx");
  ASSERT_TRUE(g.opened.ok()) << g.opened.message();
  std::map<std::string, int64_t> layers;
  for (const LayerCount& l : g.layers) layers[l.name] = l.features;
  for (const auto& [layer, element] : std::map<std::string, std::string>{
           {"waypoints", "wpt"}, {"routes", "rte"}, {"tracks", "trk"}}) {
    const std::string count = Capture(python +
                                      "'import sys,xml.etree.ElementTree as E; print(sum(1 for e "
                                      "in E.parse(sys.argv[1]).getroot() if e.tag.endswith(\"}" +
                                      element + "\")))' " + Q(gpx));
    EXPECT_EQ(layers[layer], std::atoll(count.c_str())) << layer;
  }
  // A dataset that no driver opens: the reason, without GDAL's list of every driver.
  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  const Content bad = InspectIn(dir, png, "geojson");
  EXPECT_FALSE(bad.opened.ok());
  EXPECT_EQ(bad.opened.message().rfind("ogrinfo: ", 0), 0u) << bad.opened.message();
  EXPECT_EQ(bad.opened.message().find("->"), std::string::npos) << bad.opened.message();
}

}  // namespace
}  // namespace pictavo::verify
