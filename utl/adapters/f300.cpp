// The general raster tool ("f300_uni.exe"): its switches as ImageMagick steps, with netpbm and
// LibRaw decoding what ImageMagick cannot read.
#include <map>

#include "utl/adapters/family.h"

namespace pictavo::utl {

// ---- The general raster tool ("f300_uni.exe") --------------------------------------------------

namespace {

struct F300Options {
  std::string out_format;
  std::string output;
  std::vector<std::string> inputs;
  int compression = -1;
  int page = -1;
  int colors = 0;
  bool multi = false, overwrite = false, cmyk = false, autocontrast = false, binary = false,
       raw = false;
  std::string error;
};

F300Options ParseF300(const Args& args) {
  F300Options o;
  auto value = [&](size_t& i) -> std::string {
    if (i + 1 >= args.size()) {
      o.error = "switch " + args[i] + " needs a value";
      return "";
    }
    return args[++i];
  };
  auto number = [&](size_t& i) {
    std::string v = value(i);
    if (v.empty() || v.find_first_not_of("0123456789") != std::string::npos) {
      if (o.error.empty()) o.error = "switch " + args[i - 1] + " needs a number";
      return 0;
    }
    return std::stoi(v);
  };
  for (size_t i = 0; i < args.size() && o.error.empty(); ++i) {
    const std::string& a = args[i];
    if (a == "-out")
      o.out_format = Lower(value(i));
    else if (a == "-o")
      o.output = value(i);
    else if (a == "-c")
      o.compression = number(i);
    else if (a == "-page")
      o.page = number(i);
    else if (a == "-npcd")
      number(i);  // PhotoCD resolution: the converter picks the base size
    else if (a == "-colors")
      o.colors = number(i);
    else if (a == "-binary")
      o.binary = !value(i).empty();  // "nodither": 1 bit, no dither
    else if (a == "-multi")
      o.multi = true;
    else if (a == "-overwrite")
      o.overwrite = true;
    else if (a == "-cmyk_space")
      o.cmyk = true;
    else if (a == "-autocontrast")
      o.autocontrast = true;
    else if (a == "-raw_autobright" || a == "-raw_camerabalance")
      o.raw = true;
    else if (a == "-quiet" || a == "-ignore_errors")
      continue;
    else if (!a.empty() && a[0] == '-' && a.size() > 1)
      o.error = "unknown switch " + a;
    else
      o.inputs.push_back(a);
  }
  return o;
}

// Output formats by the converter's name; the value is ImageMagick's coder. Formats that no
// program here writes are missing, and the tool then fails without output.
const std::map<std::string, std::string>& F300Formats() {
  static const std::map<std::string, std::string> formats = {
      {"tiff", "TIFF"}, {"tif", "TIFF"}, {"png", "PNG"}, {"bmp", "BMP3"}, {"cin", "CIN"},
      {"dcx", "DCX"},   {"mtv", "MTV"},  {"sgi", "SGI"}, {"xbm", "XBM"},  {"xpm", "XPM"},
      {"pict", "PICT"}, {"pct", "PICT"}, {"rad", "HDR"}, {"hdr", "HDR"},  {"jpg", "JPEG"},
      {"jpeg", "JPEG"}, {"gif", "GIF"},  {"pcx", "PCX"}, {"tga", "TGA"},  {"ppm", "PPM"},
      {"pgm", "PGM"},   {"pbm", "PBM"},  {"ras", "SUN"}, {"xwd", "XWD"},  {"pcd", "PCD"},
      {"gbr", ""}};  // GIMP brush: written by the adapter itself from a PAM
  return formats;
}

// Retro inputs that ImageMagick cannot read, by extension: the netpbm reader that can.
const std::map<std::string, std::string>& NetpbmReaders() {
  static const std::map<std::string, std::string> readers = {
      {"img", "gemtopnm"}, {"iff", "ilbmtoppm"},    {"lbm", "ilbmtoppm"}, {"neo", "neotoppm"},
      {"pi1", "pi1toppm"}, {"pc1", "pc1toppm"},     {"spc", "spctoppm"},  {"spu", "sputoppm"},
      {"mgr", "mgrtopbm"}, {"mrf", "mrftopbm"},     {"mac", "macptopbm"}, {"mpnt", "macptopbm"},
      {"qrt", "qrttoppm"}, {"sir", "sirtopnm"},     {"xim", "ximtoppm"},  {"411", "411toppm"},
      {"atk", "atktopbm"}, {"brush", "brushtopbm"}, {"cmu", "cmuwmtopbm"}};
  return readers;
}

// The converter's TIFF compression numbers.
const char* TiffCompression(int c) {
  switch (c) {
    case 1:
      return "RLE";  // PackBits in a TIFF
    case 3:
      return "LZW";
    case 5:
      return "Fax";
    case 7:
      return "Group4";
    case 8:
      return "JPEG";
    case 0:
      return "None";
    default:
      return nullptr;
  }
}

// Steps that decode an input ImageMagick cannot read into a file it can; `input` becomes that
// file. No steps for any other input.
Plan DecodingSteps(bool raw, const std::string& scratch, const Context& ctx, std::string& input) {
  Plan p;
  const std::string ext = Extension(input);
  if (raw) {
    if (!ctx.has_program("dcraw_emu"))
      return Fail("f300_uni.exe: raw decoding needs dcraw_emu (libraw-bin)");
    const std::string tif = scratch + ".raw.tif";
    p.steps.push_back(Run({"dcraw_emu", "-T", "-w", "-Z", tif, SafeName(input)}));
    p.scratch.push_back(tif);
    input = tif;
  } else if (auto r = NetpbmReaders().find(ext); r != NetpbmReaders().end()) {
    if (!ctx.has_program(r->second))
      return Fail("f300_uni.exe: ." + ext + " needs " + r->second + " (netpbm)");
    const std::string pnm = scratch + ".pnm";
    Step s = Run({r->second, SafeName(input)});
    s.stdout_path = pnm;
    p.steps.push_back(s);
    p.scratch.push_back(pnm);
    input = pnm;
  }
  return p;
}

}  // namespace

Plan PlanF300(const Args& args, const Context& ctx) {
  F300Options o = ParseF300(args);
  if (!o.error.empty()) return Fail("f300_uni.exe: " + o.error);
  if (o.inputs.empty()) return Fail("f300_uni.exe: no input file");
  std::string input = o.inputs.front();
  std::string output = o.output;
  if (output.empty()) {
    if (!o.overwrite) return Fail("f300_uni.exe: no output file (-o) and no -overwrite");
    output = input;
  }
  std::string format = o.out_format.empty() ? Extension(output) : o.out_format;
  if (format.empty()) format = Extension(input);
  auto fmt = F300Formats().find(format);
  if (fmt == F300Formats().end()) return Fail("f300_uni.exe: cannot write format '" + format + "'");

  const std::string scratch = output + ".~f300";
  Plan p = DecodingSteps(o.raw, scratch, ctx, input);
  if (!p.error.empty()) return p;

  Args im;
  std::string frame;
  if (o.page >= 0)
    frame = "[" + std::to_string(o.page) + "]";
  else if (!o.multi)
    frame = "[0]";
  im.push_back(SafeName(input) + frame);
  if (o.autocontrast) im.push_back("-auto-level");
  if (o.colors > 0) {
    im.push_back("-colors");
    im.push_back(std::to_string(o.colors));
  }
  if (o.binary) {
    im.push_back("+dither");
    im.push_back("-monochrome");
  }
  const bool tiff = fmt->second == "TIFF";
  const bool bilevel = tiff && (o.compression == 5 || o.compression == 6 || o.compression == 7);
  if (o.cmyk && !bilevel) {  // CCITT compressions are 1 bit: no CMYK
    im.push_back("-colorspace");
    im.push_back("CMYK");
  }
  const bool g3_2d = tiff && o.compression == 6;  // ImageMagick cannot write CCITT G3 2-D
  if (bilevel) {  // 1 bit per pixel, whatever colour space the input was in
    for (const char* a : {"-colorspace", "sRGB", "-monochrome", "-depth", "1"}) im.push_back(a);
  }
  if (tiff && o.compression >= 0 && !g3_2d) {
    const char* c = TiffCompression(o.compression);
    if (c == nullptr)
      return Fail("f300_uni.exe: unknown TIFF compression " + std::to_string(o.compression));
    im.push_back("-compress");
    im.push_back(c);
  }
  if (g3_2d) {
    im.push_back("-compress");
    im.push_back("None");
  }
  const std::string written = scratch + "." + (fmt->second.empty() ? "pam" : Lower(format));
  if (fmt->second.empty()) {
    im.push_back("-depth");
    im.push_back("8");
    im.push_back("PAM:" + written);
  } else {
    im.push_back(fmt->second + ":" + written);
  }
  p.steps.push_back(ImStep(ctx, im));
  p.scratch.push_back(written);
  std::string result = written;
  if (g3_2d) {
    if (!ctx.has_program("tiffcp")) return Fail("f300_uni.exe: -c 6 needs tiffcp (libtiff-tools)");
    const std::string g3 = scratch + ".g3.tif";
    p.steps.push_back(Run({"tiffcp", "-c", "g3:2d", SafeName(written), SafeName(g3)}));
    p.scratch.push_back(g3);
    result = g3;
  }
  if (fmt->second.empty()) {
    const std::string gbr = scratch + ".gbr";
    p.steps.push_back(Other(Step::Kind::kWriteGbr, {written, gbr, BaseName(output)}));
    p.scratch.push_back(gbr);
    result = gbr;
  }
  // Written under a scratch name and renamed into place: a failed run leaves no half file, and
  // -overwrite replaces the input only once the new file is complete.
  p.steps.push_back(Other(Step::Kind::kRename, {result, output}));
  return p;
}

}  // namespace pictavo::utl
