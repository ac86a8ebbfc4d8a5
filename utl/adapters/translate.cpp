// The table of adapters, by their names in the tool folder, and the helpers every family of
// adapters shares.
#include <cctype>

#include "utl/adapters/family.h"

namespace pictavo::utl {

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

Step ImStep(const Context& ctx, Args im_args) {
  Args argv{kImConvert};
  argv.insert(argv.end(), im_args.begin(), im_args.end());
  Step s = Run(std::move(argv));
  // Our own policy: PDF/PS/EPS allowed and resource caps fit for print-size pictures.
  s.env.push_back("MAGICK_CONFIGURE_PATH=" + ctx.utl_folder + "magick");
  return s;
}

Args Files(const Args& args) {
  Args files;
  for (const std::string& a : args)
    if (a.empty() || a[0] != '-' || a == "-") files.push_back(a);
  return files;
}

namespace {

struct AdapterRow {
  std::string_view name;
  PlanRoutine plan;
};

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
