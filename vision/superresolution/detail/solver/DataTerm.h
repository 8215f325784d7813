#pragma once

#include "vision/superresolution/detail/operators/FramePsfs.h"

namespace movra::vision::detail {

/// What the frames say about the image: the operator sum_k B_k' M_k B_k and the back-projection sum_k B_k' M_k y_k.
///
/// Both are computed in bands of rows of the padded image, from the first to the last, so that the caller can do what
/// else is to be done with these rows while they are in cache.
template <class Mask>
class DataTerm {
 public:
  /// PSFs and masks of the frames that take part.
  struct Frames {
    int count = 0;
    const FramePsfs* psfs = nullptr;
    Mask** masks = nullptr;
  };

  /// Rows [begin, end) of the result; rows [0, rowsRead) of the operand must be final by then.
  struct Band {
    int begin;
    int end;
    int rowsRead;
  };

  virtual ~DataTerm() = default;

  /// The frames of the calls that follow, none or more. Their PSFs may change afterwards, their masks may not.
  virtual void useFrames(const Frames& given) { frames = given; }

  virtual int bandCount() const = 0;
  virtual Band band(int index) const = 0;

  /// Adds band `index` of sum_k B_k' M_k B_k x to `out`, frame by frame. Bands are asked for in ascending order.
  virtual void addOperator(int index, float* x, float* out) = 0;

  /// Writes band `index` of sum_k B_k' M_k y_k to `out`.
  virtual void backProject(int index, float** images, float* out) = 0;

 protected:
  Frames frames;
};

}  // namespace movra::vision::detail
