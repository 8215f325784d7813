/* That a C99 program can use the C interface: compiles with nothing but the header, and links the shared
 * library. */
#include "vision/superresolution/SuperResolutionCAdapter.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { width = 32, height = 24 };

static void expect(int condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "failed: %s\n", what);
  exit(EXIT_FAILURE);
}

int main(void) {
  static float frame[width * height];
  static float image[4 * width * height];
  char text[64] = "";
  int columns = 0, rows = 0;

  const int context = SuperResolution_init(width, height);
  expect(context == 0, "the first handle is 0");
  expect(SuperResolution_setCameraAndLensType(context, "m06 FOV 24") == SUPERRESOLUTION_SUCCESS, "camera");
  expect(SuperResolution_setReferenceFrame(context, 2) == SUPERRESOLUTION_SUCCESS, "reference frame");
  for (int n = 0; n < 5; ++n) {
    for (int i = 0; i < width * height; ++i)
      frame[i] = (float)(290 + (i % width / 5 + i / width / 4) % 2 * 10 + n % 2 * 0.01);
    expect(SuperResolution_addImage(context, frame) == SUPERRESOLUTION_SUCCESS, "frames");
  }
  expect(SuperResolution_queryOutputImageSize(context, &columns, &rows) == SUPERRESOLUTION_SUCCESS, "size");
  expect(columns == 2 * width && rows == 2 * height, "twice the size");
  expect(SuperResolution_getSuperresolutionImage(context, image) == SUPERRESOLUTION_SUCCESS, "image");
  for (int i = 0; i < 4 * width * height; ++i) expect(image[i] > 280 && image[i] < 310, "temperatures");
  expect(SuperResolution_release(context) == SUPERRESOLUTION_SUCCESS, "release");

  expect(SuperResolution_release(context) == SUPERRESOLUTION_ERROR, "second release");
  SuperResolution_getErrorMessage(text, (int)sizeof text - 1);
  expect(strcmp(text, "Context invalid.") == 0, "text of the error");
  return EXIT_SUCCESS;
}
