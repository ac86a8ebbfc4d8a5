// Documents and the drawing formats that LibreOffice imports (Word, RTF, Pages, CorelDRAW, Visio,
// CGM, WPG, EMF), made into PDF by LibreOffice headless ("soffice.bin") and taken on from there.
#include <filesystem>
#include <functional>
#include <thread>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"

namespace pictavo::direct {

namespace fs = std::filesystem;
using tools::Quoted;

int32_t office2pdf(TZubDirect& self, Path src, Path dest) {
  constexpr char kOffice[] = "soffice.bin";
  if (!self.HasTool(kOffice)) return kDirectFailed;
  // One profile per worker: LibreOffice locks its profile, and workers run at once. The profile
  // is kept in the job's temporary folder between files (it is slow to create).
  const size_t worker = std::hash<std::thread::id>{}(std::this_thread::get_id()) % 1000000;
  const std::string profile = (fs::absolute(self.temp_folder) / ("lo_" + std::to_string(worker)))
                                  .lexically_normal()
                                  .string();
  // LibreOffice names its output after the source; a folder of our own keeps that name free.
  const std::string outdir = self.Scratch("");
  std::error_code ec;
  fs::create_directories(outdir, ec);
  const std::string cmd = Quoted(self.Tool(kOffice)) + " --headless --norestore " +
                          Quoted("-env:UserInstallation=file://" + profile) +
                          " --convert-to pdf --outdir " + Quoted(outdir) + " " + Quoted(src);
  const std::string made = (fs::path(outdir) / (fs::path(src).stem().string() + ".pdf")).string();
  int32_t status = kDirectFailed;
  if (tools::RunFor(self.Job(), cmd, made)) {
    fs::rename(made, dest, ec);
    status = tools::Produced(dest) ? 0 : kDirectFailed;
  }
  tools::RemovePath(outdir);
  return status;
}

namespace {

// Office document -> PDF -> `then`.
int32_t ViaPdf(TZubDirect& self, Path src, Path dest, int32_t (*then)(TZubDirect&, Path, Path)) {
  const std::string pdf = self.Scratch(".pdf");
  int32_t status = office2pdf(self, src, pdf);
  if (status == 0) status = then(self, pdf, dest);
  tools::RemovePath(pdf);
  return status;
}

}  // namespace

int32_t doc2pdf(TZubDirect& self, Path src, Path dest) {
  return office2pdf(self, src, dest);
}

int32_t doc2eps_ps(TZubDirect& self, Path src, Path dest) {
  return ViaPdf(self, src, dest, adobe);
}

int32_t doc2vec(TZubDirect& self, Path src, Path dest) {
  return ViaPdf(self, src, dest, adobe2vec);
}

int32_t pages2vec(TZubDirect& self, Path src, Path dest) {
  return ViaPdf(self, src, dest, adobe2vec);
}

int32_t pages2adobe(TZubDirect& self, Path src, Path dest) {
  if (ExtOf(dest) == "pdf") return office2pdf(self, src, dest);
  return ViaPdf(self, src, dest, adobe);
}

}  // namespace pictavo::direct
