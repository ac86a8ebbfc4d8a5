// Document adapters: Ghostscript, the PDF merger, XPS and text to PDF.
#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "utl/adapters/family.h"

namespace pictavo::utl {

// ---- Ghostscript ("pdfpsai.bin") ---------------------------------------------------------------

namespace {

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

// ---- PDF merger ("pdfmerge.bin") ---------------------------------------------------------------

namespace {

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

}  // namespace

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

// ---- XPS ("gxpswin32.exe") ---------------------------------------------------------------------

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

// ---- Text to PDF ("text2pdf.exe") --------------------------------------------------------------

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

}  // namespace pictavo::utl
