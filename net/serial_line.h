// A serial device in raw mode.
#ifndef NET_SERIAL_LINE_H
#define NET_SERIAL_LINE_H

#include <termios.h>

namespace vexo {

// Fills in the settings of a raw line, with the meaning that tty_connect gives to the arguments.
// Returns whether the speed could be set.
bool make_raw_settings(unsigned int baud, int data_bits, int stop_bits, int parity,
                       termios& settings);

// Opens and configures a device; `saved` (may be null) takes the settings found. Returns 0 and the
// descriptor in `fd`, or -1, with `fd` as it was and the device closed.
int tty_local_connect(const char* device, unsigned int baud, int data_bits, int stop_bits,
                      int parity, int* fd, termios* saved);

}  // namespace vexo

#endif
