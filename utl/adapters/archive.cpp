// Archive adapters: 7-Zip (with unar for RAR) and the TNEF mail unpacker.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "utl/adapters/family.h"

namespace pictavo::utl {

// ---- Archiver ("7za.bin") ----------------------------------------------------------------------

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

// ---- Mail attachments ("wmopener.exe") ---------------------------------------------------------

Plan PlanWmopener(const Args& args, const Context&) {
  if (args.size() != 2) return Fail("wmopener.exe: expected WINMAIL.DAT OUTDIR");
  Plan p;
  p.steps.push_back(Other(Step::Kind::kMakeDir, {args[1]}));
  p.steps.push_back(Run({"tnef", "--overwrite", "-f", args[0], "-C", args[1]}));
  return p;
}

}  // namespace pictavo::utl
