/* What both examples look at: a known scene, seen by a sensor of 80 x 60 pixels from five slightly different places. So a
   result can be compared with the truth, and with one frame enlarged. */
#ifndef SCENE_H
#define SCENE_H

enum { width = 80, height = 60, frameCount = 5, reference = 1 };

/* Fills a frame, height x width floats in kelvin: the n-th of the burst. */
void fillFrame(float* frame, int n);

/* Prints the errors of the image, 2 height x 2 width, and of the enlarged reference frame against the scene.
   Returns whether the image is better. */
int isBetterThanOneFrame(const float* image);

#endif
