/*
 * Names of the controller's catalogue to row numbers. The index is built by vexo_all_recipe_get();
 * recipes and commands take the row numbers.
 *
 * Names are compared byte by byte, case included. An unknown handle gives -1 and
 * "<function>---VexoDatespace is NULL", printed and logged. Lookups may be made from any thread,
 * but not while the index of the same handle is built or reset.
 */
#ifndef CLIENT_NAME_INDEX_H
#define CLIENT_NAME_INDEX_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* What a name list given to multi_find() names. */
#define VEXO_FIND_INPUT 0u
#define VEXO_FIND_OUTPUT 1u
#define VEXO_FIND_METHOD 2u

/* Most characters of a list given to multi_find(); what is behind them is not looked at. */
#define VEXO_NAME_LIST_MAX 199999

/* The row of `name` in the input, output or method catalogue, or -1: silently when the name is
 * null or not known, or the index is not built. Of several rows with the same name, any. */
VEXO_API int32_t find_input_index(uint32_t handle, const char* name);
VEXO_API int32_t find_output_index(uint32_t handle, const char* name);
VEXO_API int32_t find_method_index(uint32_t handle, const char* name);

/*
 * Looks up names that are separated by commas; blanks belong to the names.
 *   kind     VEXO_FIND_INPUT, _OUTPUT or _METHOD; any other leaves `results` untouched
 *   results  one row number per name, -1 for a name that is not known or empty. For
 *            VEXO_FIND_OUTPUT a name that is no output but an input gives its input row with
 *            VEXO_INPUT_ROW_MARKER set, as output recipes take it.
 * Returns the number of names (commas plus one); -1 for a null list, or when there is no memory
 * ("malloc failed"). Each lookup under an unknown handle reports that.
 */
VEXO_API int32_t multi_find(uint32_t handle, const char* names, uint32_t kind, int32_t* results);

/*
 * Build one index from catalogue rows: `rows` points to the first of `count` rows, each beginning
 * with a name of at most 100 characters (zero-filled), 108 bytes apart for variables and 104 for
 * methods. What was built before is dropped; rows without a name are left out. Beyond 1000 input,
 * 2000 output or 3000 method names the rest is left out with "[ERROR] Input hash pool overflow!"
 * ("Output", "Method"), printed and logged, and the result is still 0.
 * Return 0 or -1. The bucket arrays are on the heap; without memory for them the process ends.
 */
VEXO_API int32_t build_input_hash(uint32_t handle, int32_t count, const void* rows);
VEXO_API int32_t build_output_hash(uint32_t handle, int32_t count, const void* rows);
VEXO_API int32_t build_method_hash(uint32_t handle, int32_t count, const void* rows);

/* Drops the three indexes of a handle; lookups then give -1. Returns 0 or -1. */
VEXO_API int32_t reset_all_hashes(uint32_t handle);

VEXO_C_END

#endif
