// 3D models through the Open Asset Import Library's command-line tool
// ("assimp64\assimp.exe export"); drawings of a model through its STL faces.
#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/tool_paths.h"

namespace pictavo::direct {

using tools::Quoted;

int32_t convert_3d_stl(TZubDirect& self, Path src, Path dest) {
  constexpr char kAssimp[] = "assimp64\\assimp.exe";
  self.HasTool(kAssimp);
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool(kAssimp)) + " export " + Quoted(src) + " " + Quoted(dest),
                       dest)
             ? 0
             : kDirectFailed;
}

int32_t convert_3d_vec(TZubDirect& self, Path src, Path dest) {
  // A model has no drawing writer of its own: DXF is made from its triangles.
  if (ExtOf(dest) != "dxf") return NoProgram(self, "convert_3d_vec to " + ExtOf(dest));
  const std::string stl = self.Scratch(".stl");
  int32_t status = ExtOf(src) == "stl" ? 0 : convert_3d_stl(self, src, stl);
  if (status == 0) status = convert_stl2dxf(self, ExtOf(src) == "stl" ? src : stl, dest);
  tools::RemovePath(stl);
  return status;
}

}  // namespace pictavo::direct
