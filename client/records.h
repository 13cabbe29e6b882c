/*
 * The plain records that pass between the library and the application. Their layout is part of the
 * binary interface.
 */
#ifndef CLIENT_RECORDS_H
#define CLIENT_RECORDS_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/* Most handles that a process can hold. */
#define VEXO_MAX_HANDLES 10

/* Most entries in one catalogue page. */
#define VEXO_PAGE_ROWS 200

/* In an output recipe: marks a row number as one of the input catalogue. */
#define VEXO_INPUT_ROW_MARKER 0x1A000000u

/* One registered handle. A slot is filled when a handle is created and never cleared. */
typedef struct VexoHandleSlot {
    uint32_t handle;    /* the handle's number, never 0 in a filled slot */
    uint8_t* dataspace; /* the handle's state; dangling once the handle is destroyed */
    char ip[20];        /* controller address; without a final zero when it has 20 characters */
    uint8_t index;      /* 0 to 9: which slot this is */
} VexoHandleSlot;

static_assert(sizeof(VexoHandleSlot) == 40, "layout");
static_assert(offsetof(VexoHandleSlot, dataspace) == 8, "layout");
static_assert(offsetof(VexoHandleSlot, ip) == 16, "layout");
static_assert(offsetof(VexoHandleSlot, index) == 36, "layout");

/* One variable of a catalogue page. */
typedef struct VexoVariableRow {
    uint8_t name_length; /* characters in `name`, at most 102 */
    char name[103];      /* ends with a zero */
    uint32_t id;         /* the controller's number of the variable */
    uint8_t type;        /* type code, see wire/type_codes.h */
} VexoVariableRow;

static_assert(sizeof(VexoVariableRow) == 112, "layout");
static_assert(offsetof(VexoVariableRow, id) == 104, "layout");
static_assert(offsetof(VexoVariableRow, type) == 108, "layout");

/* A page of output or input variables. */
typedef struct VexoVariablePage {
    uint8_t count;       /* rows filled */
    uint8_t reserved[3]; /* left as it is */
    VexoVariableRow rows[VEXO_PAGE_ROWS];
} VexoVariablePage;

static_assert(sizeof(VexoVariablePage) == 4 + VEXO_PAGE_ROWS * 112, "layout");

/* One control method of a catalogue page. */
typedef struct VexoMethodRow {
    uint8_t name_length; /* characters in `name`, at most 100 */
    char name[101];      /* ends with a zero */
    uint16_t id;         /* the controller's number of the method */
} VexoMethodRow;

static_assert(sizeof(VexoMethodRow) == 104, "layout");
static_assert(offsetof(VexoMethodRow, id) == 102, "layout");

/* A page of control methods. */
typedef struct VexoMethodPage {
    uint8_t count;    /* rows filled */
    uint8_t reserved; /* left as it is */
    VexoMethodRow rows[VEXO_PAGE_ROWS];
} VexoMethodPage;

static_assert(sizeof(VexoMethodPage) == 2 + VEXO_PAGE_ROWS * 104, "layout");

/* What a controller says of itself. A text of 20 characters fills its field, without a zero. */
typedef struct VexoControllerVersion {
    uint16_t model;
    char firmware[20];
    char hardware[20];
    char bootloader[20];
} VexoControllerVersion;

static_assert(sizeof(VexoControllerVersion) == 62, "layout");
static_assert(offsetof(VexoControllerVersion, firmware) == 2, "layout");

#endif
