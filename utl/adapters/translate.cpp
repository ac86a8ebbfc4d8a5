#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "utl/adapters/plan.h"

namespace pictavo::utl {

namespace {

constexpr char kImConvert[] = "convert-im6.q16";

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string Extension(const std::string& path) {
  size_t slash = path.rfind('/');
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  return Lower(path.substr(dot + 1));
}

std::string BaseName(const std::string& path) {
  size_t slash = path.rfind('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// A file name that a program could take for a switch gets a "./" in front.
std::string SafeName(const std::string& path) {
  return !path.empty() && path[0] == '-' ? "./" + path : path;
}

Step Run(Args argv) {
  Step s;
  s.argv = std::move(argv);
  return s;
}
Step Other(Step::Kind kind, Args argv) {
  Step s;
  s.kind = kind;
  s.argv = std::move(argv);
  return s;
}

Plan Fail(std::string message) {
  Plan p;
  p.error = std::move(message);
  return p;
}

// ---- Ghostscript ("pdfpsai.bin") ------------------------------------------------------------

bool IsMovableGsSwitch(const std::string& a) {
  static constexpr std::string_view kPrefixes[] = {"-d", "-s", "-r", "-g",       "-I",
                                                   "-q", "-D", "-S", "--permit-"};
  for (std::string_view p : kPrefixes)
    if (a.compare(0, p.size(), p) == 0) return true;
  return false;
}

}  // namespace

// Ghostscript applies a switch only to the files after it; the engine writes some switches after
// the input (page range, profile, compression), meaning them for that input.
Args MoveTrailingGsSwitches(const Args& args) {
  size_t first_input = args.size();
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "-o" || a == "-f") {
      ++i;  // the file after "-o" is the output; after "-f" it is an input, kept in place
      if (a == "-f") {
        first_input = i;
        break;
      }
      continue;
    }
    if (a.empty() || a[0] != '-') {
      first_input = i;
      break;
    }
  }
  if (first_input >= args.size()) return args;
  Args front(args.begin(), args.begin() + static_cast<long>(first_input));
  Args rest;
  for (size_t i = first_input; i < args.size(); ++i) {
    if (IsMovableGsSwitch(args[i])) {
      front.push_back(args[i]);
    } else if (args[i] == "-o" && i + 1 < args.size()) {
      front.push_back(args[i]);
      front.push_back(args[++i]);
    } else {
      rest.push_back(args[i]);
    }
  }
  front.insert(front.end(), rest.begin(), rest.end());
  return front;
}

namespace {

// ---- ImageMagick ("convert.bin") -------------------------------------------------------------

// Options of `convert` that take no value; every other option takes one.
bool ImOptionTakesNoValue(const std::string& a) {
  static constexpr std::string_view kFlags[] = {
      "-monochrome",   "+dither",  "-flatten",  "-strip",       "-normalize", "-auto-level",
      "-negate",       "+adjoin",  "-adjoin",   "-quiet",       "-verbose",   "-coalesce",
      "-append",       "+append",  "-flip",     "-flop",        "+repage",    "-trim",
      "-despeckle",    "-enhance", "-equalize", "-auto-orient", "+matte",     "-matte",
      "-layers-merge", "-magnify", "-reverse",  "+profile-all"};
  for (std::string_view f : kFlags)
    if (a == f) return true;
  return false;
}

bool IsImOption(const std::string& a) {
  return a.size() > 1 && (a[0] == '-' || a[0] == '+') &&
         !std::isdigit(static_cast<unsigned char>(a[1]));
}

}  // namespace

// The output of `convert` is its last file; options written after it would be read as a file.
Args MoveImOptionsBeforeOutput(const Args& args) {
  long last_file = -1;
  for (size_t i = 0; i < args.size(); ++i) {
    if (IsImOption(args[i])) {
      if (!ImOptionTakesNoValue(args[i])) ++i;
    } else {
      last_file = static_cast<long>(i);
    }
  }
  if (last_file < 0 || last_file + 1 == static_cast<long>(args.size())) return args;
  Args out(args.begin(), args.begin() + last_file);
  out.insert(out.end(), args.begin() + last_file + 1, args.end());
  out.push_back(args[static_cast<size_t>(last_file)]);
  return out;
}

namespace {

Step ImStep(const Context& ctx, Args im_args) {
  Args argv{kImConvert};
  argv.insert(argv.end(), im_args.begin(), im_args.end());
  Step s = Run(std::move(argv));
  // Our own policy: PDF/PS/EPS allowed and resource caps fit for print-size pictures.
  s.env.push_back("MAGICK_CONFIGURE_PATH=" + ctx.utl_folder + "magick");
  return s;
}

bool IsPostScriptFamily(const std::string& path) {
  static constexpr std::string_view kExts[] = {"pdf", "ps", "eps", "epi", "epsf", "ai"};
  const std::string ext = Extension(path);
  return std::find(std::begin(kExts), std::end(kExts), ext) != std::end(kExts);
}

Plan PlanConvert(const Args& args, const Context& ctx) {
  if (args.empty()) return Fail("convert.bin: no arguments");
  Args im = MoveImOptionsBeforeOutput(args);
  Plan p;
  // Debian's system policy forbids ImageMagick's PDF/PS coders and a user policy cannot lift
  // that, so PostScript-family inputs are rendered by Ghostscript first, one PNG per page.
  std::string density = "72";
  for (size_t i = 0; i + 1 < im.size(); ++i)
    if (im[i] == "-density") density = im[i + 1];
  for (size_t i = 0; i + 1 < im.size(); ++i) {
    if (IsImOption(im[i])) {
      if (!ImOptionTakesNoValue(im[i])) ++i;
      continue;
    }
    if (!IsPostScriptFamily(im[i])) continue;
    if (!ctx.has_program("gs"))
      return Fail("convert.bin: PDF and PostScript need gs (ghostscript)");
    const std::string pages = im.back() + ".~gs" + std::to_string(i);
    p.steps.push_back(
        Run({"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-dEPSCrop", "-sDEVICE=pngalpha",
             "-r" + density, "-sOutputFile=" + pages + "-%04d.png", SafeName(im[i])}));
    p.scratch.push_back(pages + "-*.png");
    im[i] = pages + "-*.png";  // ImageMagick expands the pattern itself, in name order
  }
  p.steps.push_back(ImStep(ctx, im));
  return p;
}

// ---- The general raster tool ("f300_uni.exe") ------------------------------------------------

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

  Plan p;
  const std::string scratch = output + ".~f300";
  // Decoding steps for inputs that ImageMagick cannot read.
  const std::string ext = Extension(input);
  if (o.raw) {
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

// ---- JPEG 2000 writer ("colorist.exe") -------------------------------------------------------

Plan PlanColorist(const Args& args, const Context& ctx) {
  // convert "<src>" "<dest>" -f j2k -q <q>
  std::vector<std::string> files;
  int quality = 100;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "-q" && i + 1 < args.size())
      quality = std::atoi(args[++i].c_str());
    else if (args[i] == "-f" && i + 1 < args.size())
      ++i;  // the codestream kind follows the name
    else if (args[i] != "convert")
      files.push_back(args[i]);
  }
  if (files.size() != 2) return Fail("colorist.exe: expected convert SRC DEST");
  const std::string& src = files[0];
  const std::string& dest = files[1];
  Plan p;
  std::string input = src;
  static constexpr std::string_view kOpjInputs[] = {"bmp", "pgm", "ppm",  "pnm",
                                                    "png", "tif", "tiff", "tga"};
  const std::string ext = Extension(src);
  if (std::find(std::begin(kOpjInputs), std::end(kOpjInputs), ext) == std::end(kOpjInputs)) {
    if (!ctx.has_program(kImConvert))
      return Fail("colorist.exe: ." + ext + " input needs ImageMagick");
    input = dest + ".~in.png";
    p.steps.push_back(ImStep(ctx, {SafeName(src) + "[0]", "PNG:" + input}));
    p.scratch.push_back(input);
  }
  std::string dest_ext = Extension(dest);
  const bool named_for_opj = dest_ext == "jp2" || dest_ext == "j2k" || dest_ext == "j2c";
  const std::string out = named_for_opj ? dest + ".~out." + dest_ext : dest + ".~out.j2k";
  Args opj{"opj_compress", "-i", input, "-o", out};
  if (int ratio = JpegRatioForQuality(quality); ratio > 0) {
    opj.push_back("-r");
    opj.push_back(std::to_string(ratio));
  }
  p.steps.push_back(Run(opj));
  p.scratch.push_back(out);
  p.steps.push_back(Other(Step::Kind::kRename, {out, dest}));
  return p;
}

// ---- PDF merger ("pdfmerge.bin") ---------------------------------------------------------------

Args Glob(const std::string& pattern) {
  if (pattern.find_first_of("*?[") == std::string::npos) return {pattern};
  glob_t g{};
  Args found;
  if (::glob(pattern.c_str(), 0, nullptr, &g) == 0)
    for (size_t i = 0; i < g.gl_pathc; ++i) found.push_back(g.gl_pathv[i]);
  ::globfree(&g);
  std::sort(found.begin(), found.end());
  return found;
}

// A pdftk page range ("3", "2-5", "4-end") as qpdf writes it; empty when it is not one.
std::string QpdfRange(const std::string& r) {
  std::string out;
  for (char c : r) {
    if (std::isdigit(static_cast<unsigned char>(c)) || c == '-')
      out += c;
    else
      return "";
  }
  return out;
}

Plan PlanPdfMerge(const Args& args, const Context&) {
  // <inputs...> cat [ranges...] output <out>
  auto cat = std::find(args.begin(), args.end(), "cat");
  auto output = std::find(cat, args.end(), "output");
  if (cat == args.end() || output == args.end() || output + 1 == args.end())
    return Fail("pdfmerge.bin: expected INPUTS cat [PAGES] output OUT");
  Args inputs;
  for (auto it = args.begin(); it != cat; ++it) {
    Args expanded = Glob(*it);
    if (expanded.empty()) return Fail("pdfmerge.bin: no file matches " + *it);
    inputs.insert(inputs.end(), expanded.begin(), expanded.end());
  }
  if (inputs.empty()) return Fail("pdfmerge.bin: no input files");
  Args ranges;
  for (auto it = cat + 1; it != output; ++it) {
    std::string end_form = *it;
    size_t e = end_form.find("end");
    if (e != std::string::npos) end_form.replace(e, 3, "");
    std::string r = QpdfRange(end_form);
    if (r.empty()) return Fail("pdfmerge.bin: unsupported page range " + *it);
    if (it->find("end") != std::string::npos) r += "z";
    ranges.push_back(r);
  }
  if (!ranges.empty() && inputs.size() != 1)
    return Fail("pdfmerge.bin: page ranges need exactly one input");
  const std::string& out = *(output + 1);
  Args qpdf{"qpdf", "--empty", "--pages"};
  if (ranges.empty()) {
    for (const std::string& in : inputs) {
      qpdf.push_back(SafeName(in));
      qpdf.push_back("1-z");  // an explicit range, so that no file name is taken for one
    }
  } else {
    std::string joined;
    for (const std::string& r : ranges) joined += (joined.empty() ? "" : ",") + r;
    qpdf.push_back(SafeName(inputs.front()));
    qpdf.push_back(joined);
  }
  qpdf.push_back("--");
  const std::string scratch = out + ".~merge.pdf";
  qpdf.push_back(SafeName(scratch));
  Plan p;
  Step s = Run(qpdf);
  s.ok_codes = {0, 3};  // 3: written, with warnings about the inputs
  p.steps.push_back(s);
  p.scratch.push_back(scratch);
  p.steps.push_back(Other(Step::Kind::kRename, {scratch, out}));
  return p;
}

// ---- Archiver ("7za.bin") ---------------------------------------------------------------------

Plan Plan7za(const Args& args, const Context& ctx) {
  std::string archive, folder;
  std::string mode = args.empty() ? "" : args[0];
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i].compare(0, 2, "-o") == 0)
      folder = args[i].substr(2);
    else if (!args[i].empty() && args[i][0] != '-')
      archive = args[i];
  }
  Plan p;
  if (Extension(archive) == "rar" && (mode == "e" || mode == "x")) {
    // 7-Zip in Debian has no RAR codec (non-free); unar reads RAR.
    if (!ctx.has_program("unar")) return Fail("7za.bin: RAR archives need unar (unar)");
    if (folder.empty()) folder = ".";
    p.steps.push_back(Other(Step::Kind::kMakeDir, {folder}));
    p.steps.push_back(Run({"unar", "-q", "-f", "-D", "-o", folder, SafeName(archive)}));
    if (mode == "e") p.steps.push_back(Other(Step::Kind::kFlatten, {folder}));
    return p;
  }
  if (ctx.max_unpacked_mb > 0 && (mode == "e" || mode == "x") && !archive.empty()) {
    // A bomb is refused from the archive's own listing, before a byte is written.
    const std::string listing =
        ctx.scratch_folder + "pictavo-7z-listing-" + std::to_string(::getpid()) + ".txt";
    Step list = Run({"7zz", "l", "-slt", "--", archive});
    list.stdout_path = listing;
    p.steps.push_back(list);
    p.scratch.push_back(listing);
    p.steps.push_back(
        Other(Step::Kind::kCheckUnpackedSize, {listing, std::to_string(ctx.max_unpacked_mb)}));
  }
  Args argv{"7zz"};
  argv.insert(argv.end(), args.begin(), args.end());
  p.steps.push_back(Run(argv));
  return p;
}

// ---- Small adapters ---------------------------------------------------------------------------

Args Files(const Args& args) {
  Args files;
  for (const std::string& a : args)
    if (a.empty() || a[0] != '-' || a == "-") files.push_back(a);
  return files;
}

Plan PlanWmopener(const Args& args, const Context&) {
  if (args.size() != 2) return Fail("wmopener.exe: expected WINMAIL.DAT OUTDIR");
  Plan p;
  p.steps.push_back(Other(Step::Kind::kMakeDir, {args[1]}));
  p.steps.push_back(Run({"tnef", "--overwrite", "-f", args[0], "-C", args[1]}));
  return p;
}

Plan PlanWebp(const Args& args, const Context&) {
  Args argv{"cwebp", "-quiet"};
  Args split = SplitJoinedWebpSwitches(args);
  argv.insert(argv.end(), split.begin(), split.end());
  Plan p;
  p.steps.push_back(Run(argv));
  return p;
}

Plan PlanTwoFiles(std::string_view tool, const Args& args,
                  Args (*make)(const std::string&, const std::string&)) {
  Args files = Files(args);
  if (files.size() != 2) return Fail(std::string(tool) + ": expected INPUT OUTPUT");
  Plan p;
  p.steps.push_back(Run(make(files[0], files[1])));
  return p;
}

// ImageMagick 6 decodes DXT1/3/5 and uncompressed DDS only. Surfaces that carry a DX10 header
// (BC6H, BC7 and every other DXGI format) or the ATI/BC4/BC5 codes go to Pillow's decoder.
bool DdsNeedsPillow(const std::string& path) {
  char head[132] = {};
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  const size_t got = std::fread(head, 1, sizeof head, f);
  std::fclose(f);
  if (got < 88 || std::string_view(head, 4) != "DDS ") return false;
  const std::string_view four_cc(head + 84, 4);  // in the pixel format record of the header
  for (const char* code : {"DX10", "ATI1", "ATI2", "BC4U", "BC4S", "BC5U", "BC5S"})
    if (four_cc == code) return true;
  return false;
}

// Debian's own interpreter, the one python3-pil is built for (another python3 may come first
// on the search path).
constexpr const char* kDebianPython = "/usr/bin/python3";
constexpr const char* kPillowToTiff =
    "import sys\n"
    "from PIL import Image\n"
    "with Image.open(sys.argv[1]) as im:\n"
    "    im.convert('RGB').save(sys.argv[2], 'TIFF')\n";

Plan PlanTexconv(const Args& args, const Context& ctx) {
  // -f B8G8R8X8_UNORM -y -ft tif -o "<outdir>" "<in>": the output is <outdir>/<base>.tif
  std::string outdir, input;
  for (size_t i = 0; i < args.size(); ++i) {
    if ((args[i] == "-f" || args[i] == "-ft") && i + 1 < args.size())
      ++i;
    else if (args[i] == "-o" && i + 1 < args.size())
      outdir = args[++i];
    else if (args[i] != "-y")
      input = args[i];
  }
  if (input.empty()) return Fail("texconv.exe: no input");
  if (outdir.empty()) outdir = ".";
  if (outdir.back() != '/') outdir += '/';
  Plan p;
  const std::string output = outdir + BaseName(input) + ".tif";
  if (DdsNeedsPillow(input) && ctx.has_program(kDebianPython))
    p.steps.push_back(Run({kDebianPython, "-c", kPillowToTiff, input, output}));
  else
    p.steps.push_back(ImStep(ctx, {SafeName(input) + "[0]", "-alpha", "off", "TIFF:" + output}));
  return p;
}

Plan PlanDcm(const Args& args, const Context& ctx) {
  // /tifc=1 /convert="<out>" "<in>" /silent
  std::string out, in;
  for (const std::string& a : args) {
    if (a.compare(0, 9, "/convert=") == 0)
      out = a.substr(9);
    else if (!a.empty() && (a[0] != '/' || a.find('/', 1) != std::string::npos))
      in = a;  // switches are "/name[=value]"; an absolute path has a second "/"
  }
  if (in.empty() || out.empty()) return Fail("dcm_read_new.bin: expected /convert=OUT and INPUT");
  Plan p;
  std::string source = SafeName(in);
  // DCMTK's converter lacks JPEG 2000 and JPEG-LS; GDCM first writes every transfer syntax as
  // raw pixels, which it reads.
  if (ctx.has_program("gdcmconv")) {
    const std::string raw = out + ".~raw.dcm";
    p.steps.push_back(Run({"gdcmconv", "--raw", source, raw}));
    p.scratch.push_back(raw);
    source = raw;
  }
  p.steps.push_back(Run({"dcmj2pnm", "+ot", "+Wm", source, SafeName(out)}));
  return p;
}

Plan PlanSc(const Args& args, const Context& ctx) {
  // "<in>.tif" "<dest>" CAL r<n>
  if (args.size() < 3 || Lower(args[2]) != "cal") return Fail("sc.exe: only CAL output is served");
  std::string density = "200";
  if (args.size() > 3 && args[3].size() > 1 && (args[3][0] == 'r' || args[3][0] == 'R'))
    density = args[3].substr(1);
  Plan p;
  p.steps.push_back(ImStep(
      ctx, {SafeName(args[0]) + "[0]", "-monochrome", "-density", density, "CALS:" + args[1]}));
  return p;
}

Plan PlanHdr(const Args& args, const Context& ctx) {
  Args files = Files(args);
  Plan p;
  if (files.size() == 2 && Extension(files[0]) == "jxr") {  // read: JPEG XR -> TIFF
    std::string out = files[1];
    bool tif = Extension(out) == "tif" || Extension(out) == "tiff";
    std::string target = tif ? out : out + ".~jxr.tif";
    p.steps.push_back(Run({"JxrDecApp", "-i", files[0], "-o", target}));
    if (!tif) {
      p.scratch.push_back(target);
      p.steps.push_back(ImStep(ctx, {target, out}));
    }
    return p;
  }
  if (files.size() == 3) {  // write: SRC DEST QUALITY
    int q = std::clamp(std::atoi(files[2].c_str()), 1, 100);
    const std::string bmp = files[1] + ".~jxr.bmp";
    p.steps.push_back(ImStep(
        ctx, {SafeName(files[0]) + "[0]", "-alpha", "off", "-type", "TrueColor", "BMP3:" + bmp}));
    p.scratch.push_back(bmp);
    char quality[16];
    std::snprintf(quality, sizeof quality, "%.2f", q / 100.0);
    p.steps.push_back(Run({"JxrEncApp", "-i", bmp, "-o", files[1], "-q", quality}));
    return p;
  }
  return Fail("hdr_read.bin: expected IN.jxr OUT, or SRC DEST QUALITY");
}

Plan PlanGxps(const Args& args, const Context&) {
  std::string out, in, device = "ps2write";
  for (const std::string& a : args) {
    if (a.compare(0, 13, "-sOutputFile=") == 0)
      out = a.substr(13);
    else if (a.compare(0, 9, "-sDEVICE=") == 0)
      device = a.substr(9);
    else if (!a.empty() && a[0] != '-')
      in = a;
  }
  if (in.empty() || out.empty()) return Fail("gxpswin32.exe: expected -sOutputFile=OUT INPUT");
  const char* program = device == "pdfwrite"    ? "xpstopdf"
                        : device == "eps2write" ? "xpstops"
                                                : "xpstops";
  Args argv{program};
  if (device == "eps2write") argv.push_back("--eps");
  argv.push_back(in);
  argv.push_back(out);
  Plan p;
  p.steps.push_back(Run(argv));
  return p;
}

Plan PlanText2Pdf(const Args& args, const Context& ctx) {
  // -c1500 [-A4] -s<size> -v<spacing> [-L] "<src>"; the PDF goes to standard output
  std::string size = "10", spacing, src, media = "Letter";
  bool landscape = false;
  for (const std::string& a : args) {
    if (a == "-A4")
      media = "A4";
    else if (a == "-L")
      landscape = true;
    else if (a.compare(0, 2, "-s") == 0)
      size = a.substr(2);
    else if (a.compare(0, 2, "-v") == 0)
      spacing = a.substr(2);
    else if (a.compare(0, 2, "-c") == 0)
      continue;
    else if (!a.empty() && a[0] != '-')
      src = a;
  }
  if (src.empty()) return Fail("text2pdf.exe: no input");
  const std::string ps =
      ctx.scratch_folder + "pictavo-text2pdf-" + std::to_string(::getpid()) + ".ps";
  Args enscript{"enscript", "-q", "-B", "-M", media, "-f", "Courier" + size, "-o", ps};
  if (!spacing.empty()) {
    int skip = std::atoi(spacing.c_str()) - std::atoi(size.c_str());
    if (skip > 0) enscript.push_back("--baselineskip=" + std::to_string(skip));
  }
  if (landscape) enscript.push_back("-r");
  enscript.push_back(SafeName(src));
  Plan p;
  p.steps.push_back(Run(enscript));
  p.scratch.push_back(ps);
  p.steps.push_back(Run(
      {"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=pdfwrite", "-sOutputFile=-", ps}));
  return p;
}

struct AdapterRow {
  std::string_view name;
  Plan (*plan)(const Args&, const Context&);
};

Plan PlanPdfpsai(const Args& args, const Context& ctx) {
  Args argv{"gs"};
  Args moved = MoveTrailingGsSwitches(args);
  // The engine's command lines ask for -dNOSAFER; here a document never gets to delete, rename
  // or write files of its own choosing. It may still read the tool folder's definitions
  // (pdfa_def.ps and the profile it names).
  bool safer = false;
  for (std::string& a : moved) {
    if (a == "-dNOSAFER" || a == "-dDELAYSAFER") a = "-dSAFER";
    safer = safer || a == "-dSAFER";
  }
  if (!safer) argv.push_back("-dSAFER");
  argv.push_back("--permit-file-read=" + ctx.utl_folder);
  argv.insert(argv.end(), moved.begin(), moved.end());
  Plan p;
  p.steps.push_back(Run(argv));
  return p;
}

Plan PlanKap(const Args& a, const Context&) {
  return PlanTwoFiles("kap_read.bin", a, [](const std::string& in, const std::string& out) {
    return Args{"gdal_translate", "-q",  "-of",        "PNM",
                "-expand",        "rgb", SafeName(in), SafeName(out)};
  });
}
Plan PlanNtf(const Args& a, const Context&) {
  return PlanTwoFiles("ntf_read.bin", a, [](const std::string& in, const std::string& out) {
    return Args{"gdal_translate", "-q", "-of", "GTiff", SafeName(in), SafeName(out)};
  });
}
Plan PlanFits(const Args& a, const Context& ctx) {
  Args files = Files(a);
  if (files.size() != 2) return Fail("fits.exe: expected INPUT OUTPUT");
  Plan p;
  p.steps.push_back(ImStep(ctx, {SafeName(files[0]) + "[0]", "-depth", "8", "BMP3:" + files[1]}));
  return p;
}
Plan PlanPngoptim(const Args& a, const Context&) {
  Args files = Files(a);
  if (files.empty() || files.size() > 2) return Fail("pngoptim.bin: expected INPUT [OUTPUT]");
  Args argv{"optipng", "-quiet", "-o2"};
  if (files.size() == 2) {
    argv.push_back("-clobber");
    argv.push_back("-out");
    argv.push_back(files[1]);
  }
  argv.push_back("--");
  argv.push_back(files[0]);
  Plan p;
  p.steps.push_back(Run(argv));
  return p;
}

// ---- STEP models ("stp/stp2x3d.exe") --------------------------------------------------------

Plan PlanStp2X3d(const Args& a, const Context&) {
  // IN.step OUT.x3d: gmsh meshes the solid's surfaces into triangles, assimp writes them as X3D.
  Args files = Files(a);
  if (files.size() != 2) return Fail("stp2x3d.exe: expected IN.step OUT.x3d");
  const std::string stl = files[1] + ".~mesh.stl";
  Plan p;
  p.steps.push_back(
      Run({"gmsh", SafeName(files[0]), "-2", "-v", "1", "-format", "stl", "-o", stl}));
  p.scratch.push_back(stl);
  p.steps.push_back(Run({"assimp", "export", stl, SafeName(files[1])}));
  return p;
}

// ---- Retro formats of the "cmp_read.bin" list ------------------------------------------------

// The first bytes of a file, for telling what a printer or component-layer file really holds.
std::string Head(const std::string& path, size_t count) {
  std::string head(count, '\0');
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return "";
  head.resize(std::fread(head.data(), 1, count, f));
  std::fclose(f);
  return head;
}

bool LooksLikePostScript(const std::string& head) {
  const size_t start = !head.empty() && head[0] == '\x04' ? 1 : 0;  // a DOS printer's ^D
  return head.compare(start, 2, "%!") == 0;
}

// RS-274X Gerber: format statement, aperture definitions or a G04 comment near the start.
bool LooksLikeGerber(const std::string& head) {
  return head.find("%FS") != std::string::npos || head.find("%MO") != std::string::npos ||
         head.find("G04") != std::string::npos || head.find("%ADD") != std::string::npos;
}

Plan PlanCmpRead(const Args& a, const Context& ctx) {
  // IN OUT.bmp 100: one picture, the first page or frame. Of the list only these kinds have a
  // reader here; ECW, AFP/IOCA/PTOCA, ABIC, AWD, CMW, SFF, PTK and the CMP codec itself have none.
  Args files = Files(a);
  if (files.size() < 2) return Fail("cmp_read.bin: expected INPUT OUTPUT.bmp");
  const std::string in = SafeName(files[0]), out = files[1], ext = Extension(files[0]);
  const std::string head = Head(files[0], 512);
  Plan p;
  if (ext == "fli" || ext == "flc") {
    p.steps.push_back(Run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", in, "-frames:v", "1",
                           "-update", "1", "-c:v", "bmp", "-f", "image2", out}));
  } else if (ext == "jbg" || ext == "jbig") {
    p.steps.push_back(ImStep(ctx, {"JBG:" + files[0], "BMP3:" + out}));
  } else if (ext == "im1") {
    p.steps.push_back(ImStep(ctx, {"SUN:" + files[0], "BMP3:" + out}));
  } else if (ext == "hdp" || ext == "wdp") {
    p.steps.push_back(Run({"JxrDecApp", "-i", files[0], "-o", out}));
  } else if ((ext == "prn" || ext == "prt") && LooksLikePostScript(head)) {
    p.steps.push_back(Run({"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=bmp16m",
                           "-r150", "-dFirstPage=1", "-dLastPage=1", "-sOutputFile=" + out, in}));
  } else if (ext == "cmp" && LooksLikeGerber(head)) {
    // Gerber's component-side copper layer shares the extension with the old CMP codec.
    const std::string png = out + ".~gerber.png";
    p.steps.push_back(Run({"gerbv", "--export=png", "--dpi=300", "--background=#FFFFFF",
                           "--foreground=#000000FF", "--output=" + png, in}));
    p.scratch.push_back(png);
    p.steps.push_back(ImStep(ctx, {png, "BMP3:" + out}));
  } else {
    return Fail("cmp_read.bin: no program of this platform reads this ." + ext + " file");
  }
  return p;
}

// Each adapter of the manifest, by its name in the tool folder.
constexpr AdapterRow kAdapters[] = {
    {"pdfpsai.bin", PlanPdfpsai},
    {"convert.bin", PlanConvert},
    {"f300_uni.exe", PlanF300},
    {"colorist.exe", PlanColorist},
    {"pdfmerge.bin", PlanPdfMerge},
    {"7za.bin", Plan7za},
    {"wmopener.exe", PlanWmopener},
    {"webp_write.bin", PlanWebp},
    {"texconv.exe", PlanTexconv},
    {"dcm_read_new.bin", PlanDcm},
    {"sc/sc.exe", PlanSc},
    {"hdr_read.bin", PlanHdr},
    {"gxpswin32.exe", PlanGxps},
    {"text2pdf.exe", PlanText2Pdf},
    {"kap_read.bin", PlanKap},
    {"ntf/ntf_read.bin", PlanNtf},
    {"fits.exe", PlanFits},
    {"pngoptim.bin", PlanPngoptim},
    {"stp/stp2x3d.exe", PlanStp2X3d},
    {"cmp_read.bin", PlanCmpRead},
};

}  // namespace

Args SplitJoinedWebpSwitches(const Args& args) {
  // "-noalpha-alpha_q" is "-noalpha" and "-alpha_q" written without the blank between them.
  Args out;
  for (const std::string& a : args) {
    size_t joint = a.size() > 1 && a[0] == '-' ? a.find('-', 1) : std::string::npos;
    if (a.compare(0, 8, "-noalpha") == 0 && joint == 8 && a.size() > 9) {
      out.push_back(a.substr(0, 8));
      out.push_back(a.substr(8));
    } else {
      out.push_back(a);
    }
  }
  return out;
}

uint64_t UnpackedSizeOfListing(const std::string& listing) {
  // Each entry has a line "Size = N"; the archive itself is described by "Physical Size = N".
  uint64_t total = 0;
  size_t start = 0;
  while (start < listing.size()) {
    size_t end = listing.find('\n', start);
    if (end == std::string::npos) end = listing.size();
    if (listing.compare(start, 7, "Size = ") == 0) {
      const uint64_t size = std::strtoull(listing.c_str() + start + 7, nullptr, 10);
      total = size > UINT64_MAX - total ? UINT64_MAX : total + size;
    }
    start = end + 1;
  }
  return total;
}

int JpegRatioForQuality(int quality) {
  if (quality >= 100) return 0;
  quality = std::clamp(quality, 1, 99);
  return (100 - quality) / 2 + 2;  // 85 -> 9:1, 50 -> 27:1, 1 -> 51:1
}

const std::vector<std::string_view>& AdapterNames() {
  static const std::vector<std::string_view> names = [] {
    std::vector<std::string_view> n;
    for (const AdapterRow& row : kAdapters) n.push_back(row.name);
    return n;
  }();
  return names;
}

Plan PlanFor(std::string_view tool, const Args& args, const Context& ctx) {
  for (const AdapterRow& row : kAdapters) {
    std::string_view name = row.name;
    size_t slash = name.rfind('/');
    std::string_view file = slash == std::string_view::npos ? name : name.substr(slash + 1);
    if (tool == name || tool == file) return row.plan(args, ctx);
  }
  return Fail("no adapter is called " + std::string(tool));
}

}  // namespace pictavo::utl
