/* Super-resolves a burst of five frames through the C interface.

   The frames are made here: a known scene, seen by a sensor of 80 x 60 pixels from five slightly different
   places. So the result can be compared with the truth, and with one frame enlarged. */

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <vision/superresolution/SuperResolutionCAdapter.h>

enum { width = 80, height = 60, frameCount = 5 };

/* Displacements of the frames in pixels. The second frame is the reference: it lies still. */
static const double shifts[frameCount][2] = {{0.45, -0.3}, {0, 0}, {-0.4, 0.35}, {0.1, 0.48}, {-0.3, -0.45}};

/* Temperature in kelvin at a place in units of sensor pixels: a star of warm and cold rays. */
static double scene(double x, double y) {
  const double dx = x - 41, dy = y - 29;
  const double rays = tanh(4 * sin(12 * atan2(dy, dx)));
  const double fading = 1 - exp(-(dx * dx + dy * dy) / 150);
  return 295 + 0.05 * x + 6 * rays * fading;
}

/* What a square pixel with the given centre and side sees: the mean of the scene over it. */
static float pixel(double x, double y, double side) {
  enum { samples = 6 };
  double sum = 0;
  for (int j = 0; j < samples; ++j)
    for (int i = 0; i < samples; ++i)
      sum += scene(x + side * ((i + 0.5) / samples - 0.5), y + side * ((j + 0.5) / samples - 0.5));
  return (float)(sum / (samples * samples));
}

static void fillFrame(float* frame, const double shift[2]) {
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) frame[y * width + x] = pixel(x - shift[0], y - shift[1], 1);
}

/* Root of the mean squared error against the scene, away from the borders. */
static double error(const float* image) {
  enum { border = 8 };
  double sum = 0;
  int count = 0;
  for (int y = border; y < 2 * height - border; ++y)
    for (int x = border; x < 2 * width - border; ++x, ++count) {
      const double difference = image[y * 2 * width + x] - pixel(x / 2.0 - 0.25, y / 2.0 - 0.25, 0.5);
      sum += difference * difference;
    }
  return sqrt(sum / count);
}

static void fail(const char* what) {
  char text[256] = "";
  SuperResolution_getErrorMessage(text, sizeof text - 1);
  fprintf(stderr, "%s failed: %s\n", what, text);
  exit(EXIT_FAILURE);
}

int main(void) {
  static float frame[height * width], enlarged[4 * height * width], image[4 * height * width];

  const int context = SuperResolution_init(width, height);
  if (context < 0) fail("init");
  SuperResolution_setCameraAndLensType(context, "m06 FOV 24");
  for (int i = 0; i < frameCount; ++i) {
    fillFrame(frame, shifts[i]);
    if (SuperResolution_addImage(context, frame) != SUPERRESOLUTION_SUCCESS) fail("addImage");
  }
  if (SuperResolution_getSuperresolutionImage(context, image) != SUPERRESOLUTION_SUCCESS)
    fail("getSuperresolutionImage");
  SuperResolution_release(context);

  fillFrame(frame, shifts[1]);
  for (int y = 0; y < 2 * height; ++y)
    for (int x = 0; x < 2 * width; ++x) enlarged[y * 2 * width + x] = frame[y / 2 * width + x / 2];

  printf("error of one frame, enlarged with nearest neighbours: %.3f K\n", error(enlarged));
  printf("error of the super-resolved image:                    %.3f K\n", error(image));
  return error(image) < error(enlarged) ? EXIT_SUCCESS : EXIT_FAILURE;
}
