// What the families of adapters share: the helpers that build steps and read file names, and the
// routine of each adapter, which the table in translate.cpp names. One file per family holds the
// routines: raster.cpp, f300.cpp, document.cpp, archive.cpp, special.cpp.
#pragma once

#include <string>

#include "utl/adapters/plan.h"

namespace pictavo::utl {

// ImageMagick 6, by the name Debian gives it.
inline constexpr char kImConvert[] = "convert-im6.q16";

std::string Lower(std::string s);
std::string Extension(const std::string& path);  // lower case, without the dot; "" when none
std::string BaseName(const std::string& path);   // the file name without folder and extension
// A file name that a program could take for a switch gets a "./" in front.
std::string SafeName(const std::string& path);
// The arguments that are no switches ("-" alone is a file: standard input or output).
Args Files(const Args& args);

Step Run(Args argv);
Step Other(Step::Kind kind, Args argv);
Plan Fail(std::string message);
// ImageMagick with our own policy (utl/magick/): PDF/PS/EPS allowed, caps fit for print sizes.
Step ImStep(const Context& ctx, Args im_args);

using PlanRoutine = Plan (*)(const Args&, const Context&);

// raster.cpp
Plan PlanConvert(const Args& args, const Context& ctx);
Plan PlanColorist(const Args& args, const Context& ctx);
Plan PlanWebp(const Args& args, const Context& ctx);
Plan PlanPngoptim(const Args& args, const Context& ctx);
Plan PlanTexconv(const Args& args, const Context& ctx);
Plan PlanSc(const Args& args, const Context& ctx);
Plan PlanHdr(const Args& args, const Context& ctx);
// f300.cpp
Plan PlanF300(const Args& args, const Context& ctx);
// document.cpp
Plan PlanPdfpsai(const Args& args, const Context& ctx);
Plan PlanPdfMerge(const Args& args, const Context& ctx);
Plan PlanGxps(const Args& args, const Context& ctx);
Plan PlanText2Pdf(const Args& args, const Context& ctx);
// archive.cpp
Plan Plan7za(const Args& args, const Context& ctx);
Plan PlanWmopener(const Args& args, const Context& ctx);
// special.cpp
Plan PlanDcm(const Args& args, const Context& ctx);
Plan PlanKap(const Args& args, const Context& ctx);
Plan PlanNtf(const Args& args, const Context& ctx);
Plan PlanFits(const Args& args, const Context& ctx);
Plan PlanStp2X3d(const Args& args, const Context& ctx);
Plan PlanCmpRead(const Args& args, const Context& ctx);

}  // namespace pictavo::utl
