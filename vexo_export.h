/* The one export macro: marks the functions and variables that libvexo.so offers. */
#ifndef VEXO_EXPORT_H
#define VEXO_EXPORT_H

#ifdef VEXO_BUILDING
#define VEXO_API __attribute__((visibility("default")))
#else
#define VEXO_API
#endif

#ifdef __cplusplus
#define VEXO_C_BEGIN extern "C" {
#define VEXO_C_END }
#else
#define VEXO_C_BEGIN
#define VEXO_C_END
#endif

#endif
