/*
 * The type codes of the controller's variables, which are also those of method arguments. Numbers
 * are little-endian and lie without padding.
 *
 * Each line tells the value, then its width in bytes (vexo_get_type_len()).
 */
#ifndef WIRE_TYPE_CODES_H
#define WIRE_TYPE_CODES_H

enum VexoType {
    VEXO_TYPE_CHAR = 0,  /* one character                                       1 */
    VEXO_TYPE_BOOL = 1,  /* 0 or 1                                              1 */
    VEXO_TYPE_U8 = 2,    /* unsigned integer                                    1 */
    VEXO_TYPE_U16 = 3,   /* unsigned integer                                    2 */
    VEXO_TYPE_U32 = 4,   /* unsigned integer                                    4 */
    VEXO_TYPE_U64 = 5,   /* unsigned integer                                    8 */
    VEXO_TYPE_I8 = 6,    /* signed integer                                      1 */
    VEXO_TYPE_I16 = 7,   /* signed integer                                      2 */
    VEXO_TYPE_I32 = 8,   /* signed integer                                      4 */
    VEXO_TYPE_I64 = 9,   /* signed integer                                      8 */
    VEXO_TYPE_F32 = 10,  /* IEEE-754 number                                     4 */
    VEXO_TYPE_F64 = 11,  /* IEEE-754 number                                     8 */
    VEXO_TYPE_3F64 = 12, /* three F64                                          24 */
    VEXO_TYPE_6F64 = 13, /* six F64                                            48 */
    VEXO_TYPE_3F32 = 14, /* three F32                                          12 */
    VEXO_TYPE_6I32 = 15, /* six I32                                            24 */
    VEXO_TYPE_6U32 = 16, /* six U32                                            24 */
    VEXO_TYPE_6F32 = 17, /* six F32                                            24 */
    VEXO_TYPE_TEXT = 18, /* characters, zeros behind them                     255 */

    /* Only as an argument of a method: 1, u8 count, u8 type code of the elements, the elements. */
    VEXO_TYPE_ARRAY = 19
};

#endif
