/* Super-resolves a burst of five frames through the C interface for new programs, and tells what it found out. */

#include <stdio.h>
#include <stdlib.h>

#include <vision/superresolution/Burst.h>

#include "scene.h"

/* Draws a line that grows; a window with a button would return other than 0 once the button is pressed. */
static int showProgress(void* user, double done) {
  fprintf((FILE*)user, "\r%3.0f %%%s", 100 * done, done < 1 ? "" : "\n");
  return 0;
}

static int fail(const char* what, const char* text) {
  fprintf(stderr, "%s failed: %s\n", what, text);
  return EXIT_FAILURE;
}

int main(void) {
  static float frame[height * width], image[4 * height * width];

  movra_sr_options options;
  movra_sr_default_options(&options, sizeof options);
  options.reference = reference;
  options.progress = showProgress;
  options.progress_user = stderr;

  movra_sr_burst* burst;
  char error[200];
  if (movra_sr_create(width, height, &options, &burst, error, sizeof error) < 0) return fail("create", error);
  for (int i = 0; i < frameCount; ++i) {
    fillFrame(frame, i);
    if (movra_sr_add_frame(burst, frame, 0) < 0) return fail("add_frame", movra_sr_error_text(burst));
  }
  movra_sr_result result;
  result.size = sizeof result;
  if (movra_sr_reconstruct(burst, image, 0, &result) < 0) return fail("reconstruct", movra_sr_error_text(burst));

  printf("movra super-resolution %s: %s, sr factor %.2f, %.0f iterations, %.1f ms\n", movra_sr_version_text(),
         movra_sr_status_text(result.status), result.sr_factor, result.iterations, 1000 * result.seconds.total);
  for (int i = 0; i < frameCount; ++i) {
    double x, y;
    if (movra_sr_shift(burst, i, &x, &y) == MOVRA_SR_SUCCESS) printf("frame %d: shift (%6.3f, %6.3f)\n", i, x, y);
  }
  movra_sr_destroy(burst);
  return isBetterThanOneFrame(image) ? EXIT_SUCCESS : EXIT_FAILURE;
}
