// Adapters for the pictures of special fields: medical (DICOM), charts and satellite images (GDAL),
// astronomy (FITS), 3-D models (STEP) and the retro formats of the "cmp_read.bin" list.
#include <cstdio>

#include "utl/adapters/family.h"

namespace pictavo::utl {

namespace {

Plan PlanTwoFiles(std::string_view tool, const Args& args,
                  Args (*make)(const std::string&, const std::string&)) {
  Args files = Files(args);
  if (files.size() != 2) return Fail(std::string(tool) + ": expected INPUT OUTPUT");
  Plan p;
  p.steps.push_back(Run(make(files[0], files[1])));
  return p;
}

}  // namespace

// ---- Medical pictures ("dcm_read_new.bin") -----------------------------------------------------

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

// ---- Nautical charts and satellite pictures through GDAL ("kap_read.bin", "ntf_read.bin") ------

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

// ---- Astronomy ("fits.exe") --------------------------------------------------------------------

Plan PlanFits(const Args& a, const Context& ctx) {
  Args files = Files(a);
  if (files.size() != 2) return Fail("fits.exe: expected INPUT OUTPUT");
  Plan p;
  p.steps.push_back(ImStep(ctx, {SafeName(files[0]) + "[0]", "-depth", "8", "BMP3:" + files[1]}));
  return p;
}

// ---- STEP models ("stp/stp2x3d.exe") -----------------------------------------------------------

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

// ---- Retro formats of the "cmp_read.bin" list --------------------------------------------------

namespace {

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

}  // namespace

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

}  // namespace pictavo::utl
