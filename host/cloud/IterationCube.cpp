// The cube that an iteration's octree divides.
#include "host/cloud/IterationCube.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include <cmath>
#include <memory>

#include "host/cloud/CloudFacts.h"

namespace tarnhost {

namespace {

/// Cubes have not grown more often than this.
constexpr unsigned kMostGrowth = 64;
/// Of a cell: what rounding may move its centre. The centre of one cell is never so near to that of
/// another one, up to twenty levels coarser.
constexpr double kTolerance = 1e-8;
/// Grids that an import chooses, in cells along the cube's edge.
constexpr double kFewestCells = 8;
constexpr double kMostCells = 128;

Outcome ReadStatedCube(Cloud& cloud, IterationCube& cube) {
  const std::unique_ptr<OOCPCIInputStream> stream(
      cloud.GetPointCloud().GetDataRepository()->CreateInputStream());
  if (stream == nullptr) return Outcome::FromCode(oocpc::result::kStreamMissing, "main");
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stream->GetLength()));
  if (stream->Read(bytes.data(), bytes.size()) != bytes.size()) {
    return Outcome::FromCode(oocpc::result::kStreamShort, "main");
  }
  OOCPCCatalogue catalogue;
  HRESULT code = OOCPCDecodeMainStream(bytes, catalogue);
  for (const OOCIndexChunk& chunk : catalogue.chunks) {
    if (oocpc::Failed(code)) break;
    if (chunk.type != oocpc::chunk_type::kAccelerator1) continue;
    OOCPCAcceleratorDescription description;
    code = description.DecodeChunk(chunk.payload.data(), chunk.size);
    if (!oocpc::Failed(code)) cube = {description.cubeMin, description.cubeEdge, cube.gridBits};
  }
  return oocpc::Failed(code) ? Outcome::FromCode(code, "main") : Outcome::Success();
}

/// Whether a point is the centre of one of the cells of this width, and of which.
bool IsCentreOfCell(const oocpc::Vector3d& point, const IterationCube& cube, double width,
                    oocpc::Vector3d& corner) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double cell = (point[axis] - cube.min[axis]) / width - 0.5;
    const double whole = std::round(cell);
    if (!(std::abs(cell - whole) < kTolerance)) return false;
    corner[axis] = cube.min[axis] + whole * width;
  }
  return true;
}

}  // namespace

Outcome FindCube(Cloud& cloud, std::uint64_t iteration, IterationCube& cube) {
  cube = {};
  if (Outcome outcome = ReadStatedCube(cloud, cube); !outcome.Ok()) return outcome;
  OOCPCLODBlock block;
  std::vector<OOCPCLODNodeRecord> records;
  Outcome outcome = ReadLevelRecords(cloud, iteration, block, records);
  if (!outcome.Ok() || !(block.scale > 0)) return outcome;
  double width = cube.edge;
  for (unsigned growth = 0; growth <= kMostGrowth; ++growth, width *= 0.5) {
    oocpc::Vector3d corner;
    const double cells = width / block.scale;
    if (cells < kFewestCells * 0.99 || cells > kMostCells * 1.01) continue;
    if (!IsCentreOfCell(block.centre, cube, width, corner)) continue;
    if (growth > 0) cube.min = corner;
    cube.edge = width;
    break;
  }
  const double cells = cube.edge / block.scale;
  if (cells >= 1 && cells < 1u << 21) {
    cube.gridBits = static_cast<unsigned>(std::lround(std::log2(cells)));
  }
  return outcome;
}

}  // namespace tarnhost
