/* Super-resolves a burst of five frames through the classic C interface. */

#include <stdio.h>
#include <stdlib.h>

#include <vision/superresolution/SuperResolutionCAdapter.h>

#include "scene.h"

static void fail(const char* what) {
  char text[256] = "";
  SuperResolution_getErrorMessage(text, sizeof text - 1);
  fprintf(stderr, "%s failed: %s\n", what, text);
  exit(EXIT_FAILURE);
}

int main(void) {
  static float frame[height * width], image[4 * height * width];

  const int context = SuperResolution_init(width, height);
  if (context < 0) fail("init");
  SuperResolution_setCameraAndLensType(context, "m06 FOV 24");
  for (int i = 0; i < frameCount; ++i) {
    fillFrame(frame, i);
    if (SuperResolution_addImage(context, frame) != SUPERRESOLUTION_SUCCESS) fail("addImage");
  }
  if (SuperResolution_getSuperresolutionImage(context, image) != SUPERRESOLUTION_SUCCESS)
    fail("getSuperresolutionImage");
  SuperResolution_release(context);

  return isBetterThanOneFrame(image) ? EXIT_SUCCESS : EXIT_FAILURE;
}
