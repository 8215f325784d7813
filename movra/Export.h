#ifndef MOVRA_SUPERRESOLUTION_EXPORT_H
#define MOVRA_SUPERRESOLUTION_EXPORT_H

/* Marks what the shared library exports; everything else is hidden. */
#define MOVRA_SUPERRESOLUTION_API __attribute__((visibility("default")))
/* Marks a member of an exported class that only the library itself calls. */
#define MOVRA_SUPERRESOLUTION_LOCAL __attribute__((visibility("hidden")))

#endif
