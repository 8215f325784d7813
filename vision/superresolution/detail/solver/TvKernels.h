#pragma once

namespace movra::vision::detail {

/// Limits and scale of the edge weights: weight = coefficient / clamp(difference).
struct EdgeRule {
  float coefficient;
  float smallest;
  float largest;
};

/// Weights of the edges that lie in one row of a dense image or arrive from the row above.
struct RowEdges {
  float* right;      // [c]: between columns c and c + 1
  float* above;      // [c]: between column c of the row above and c
  float* downRight;  // [c]: between column c of the row above and c + 1
  float* downLeft;   // [c]: between column c of the row above and c - 1
};

/// Kernels of the total-variation operator L, on dense images with `width` columns.
struct TvKernels {
  /// Edges of row 0, which has none from above.
  void (*edgesOfFirstRow)(const float* frozen, int width, const EdgeRule& rule, const RowEdges& edges);

  /// Row `y` of L x with the edge weights of the image `frozen`: those in `here` and those downward, which are made on
  /// the way and left, with the edges of row y + 1, in `next`.
  void (*applyRow)(const float* frozen, const float* x, int width, int height, int y, const EdgeRule& rule,
                   const RowEdges& here, const RowEdges& next, float* out);

  /// The same with what it left in `next`.
  void (*applyKnownRow)(const float* frozen, const float* x, int width, int height, int y, const EdgeRule& rule,
                        const RowEdges& here, const RowEdges& next, float* out);
};

/// The kernels of the active instruction set.
const TvKernels& tvKernels();

}  // namespace movra::vision::detail
