#pragma once

namespace movra::vision::detail {

/// Row kernels of the registration. Sums over a rectangle are in double, with sixteen partial sums (Sums.h) by column:
/// number x mod 16 of each row of the rectangle, rows in order.
struct RegistrationKernels {
  /// Gradients of one row: halved central differences inside, plain one-sided ones in the first and last column.
  /// `above` and `below` are the rows whose difference is the vertical gradient, `weightY` is 0.5 or 1.
  void (*gradientRow)(const float* row, const float* above, const float* below, float weightY, int width, float* gradX,
                      float* gradY);

  /// Adds gradX^2, gradX gradY and gradY^2 to sums 0-15, 16-31 and 32-47.
  void (*addGradientProducts)(const float* gradX, const float* gradY, int count, double* sums);

  /// Adds gradX (frame - reference) and gradY (frame - reference) to sums 0-15 and 16-31.
  void (*addGradientTimesDifference)(const float* gradX, const float* gradY, const float* reference, const float* frame,
                                     int count, double* sums);

  /// residual = (dx gradX + dy gradY + frame - reference)^2 scale
  void (*residualRow)(float dx, float dy, float scale, const float* gradX, const float* gradY, const float* reference,
                      const float* frame, int count, float* residual);

  /// Sets mask[x] to 1 where residual[x] < limit; leaves the others.
  void (*markBelow)(const float* residual, float limit, int count, char* mask);
  void (*markBelowFloat)(const float* residual, float limit, int count, float* mask);

  /// isMaximum[x] = 1 where row[x] > threshold, is not 0, and none of its eight neighbours is larger; else 0. The rows
  /// above and below are `stride` elements away; columns -1 and `count` are read too.
  void (*markMaxima)(const float* row, long stride, float threshold, int count, unsigned char* isMaximum);

  /// 8-bit grey values: (value + offset) * scale, rounded to the nearest even and saturated; NaN gives 0.
  void (*toGrey)(const float* values, float offset, float scale, int count, unsigned char* grey);

  /// Elements of five rows, added with the weights 1, 4, 6, 4, 1.
  void (*blurFiveRows)(const unsigned char* const rows[5], int count, unsigned short* sums);

  /// Every second pixel of such a row of sums, with its neighbours up to two pixels away added in the same way: out =
  /// (sum + 128) / 256. Two pixels before and after the row are read.
  void (*halveRow)(const unsigned short* sums, int channels, int count, unsigned char* out);
};

/// The kernels of the active instruction set.
const RegistrationKernels& registrationKernels();

}  // namespace movra::vision::detail
