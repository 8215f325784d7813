#pragma once

#include <vector>

namespace movra::vision::detail {

/// Tiles along one direction: equal cores side by side, each solved with a margin, and the weights that cross-fade the
/// results. Tiles have one length; at the ends of the image they are moved inward. In low-resolution pixels.
class TileAxis {
 public:
  /// @param core wanted length of a core; one tile serves the whole image if that is not much longer
  TileAxis(int extent, int core, int margin);

  int count() const { return static_cast<int>(edges.size()) - 1; }
  int length() const { return length_; }

  int begin(int tile) const;
  int coreBegin(int tile) const { return edges[static_cast<std::size_t>(tile)]; }
  int coreEnd(int tile) const { return edges[static_cast<std::size_t>(tile) + 1]; }

  /// Weight of a tile at a high-resolution place: rises as 3 t^2 - 2 t^3 around an edge between cores. The weights of all
  /// tiles sum to 1. A tile has no weight beyond half of its neighbours' cores.
  float weight(int tile, int place) const;

 private:
  int extent;
  int margin;
  int length_;
  int fade;  // half length of a cross-fade
  std::vector<int> edges;
};

}  // namespace movra::vision::detail
