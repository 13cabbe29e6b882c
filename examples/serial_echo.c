/* Sends back whatever arrives on a serial line, until it hangs up or Ctrl-C is pressed.
 *
 *   serial_echo DEVICE [BAUD]        e.g. serial_echo /dev/ttyUSB0 115200 */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "net/serial.h"

/* Ctrl-C is held back by main and looked for between two waits, so that it cuts no echo short. */
static int stop_requested(void) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGINT);
}

/* Waits for bytes and sends them back. Returns how many there were; 0 when none came within a
 * second; -1 when the line is gone. */
static long echo_once(int channel) {
    struct timeval limit = {1, 0};
    const int ready = tty_select(channel, &limit);
    if (ready <= 0) {
        return ready;
    }
    unsigned char bytes[TTY_BLOCK_SIZE];
    const long received = tty_recv(channel, bytes, sizeof bytes);
    if (received <= 0) {
        return -1; /* readable without a byte: the line has hung up */
    }
    return tty_send(channel, bytes, (unsigned int)received) == received ? received : -1;
}

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: serial_echo DEVICE [BAUD]\n");
        return 2;
    }
    const unsigned int baud = argc > 2 ? (unsigned int)strtoul(argv[2], NULL, 10) : 115200;
    int channel = -1;
    struct termios saved;
    if (tty_connect(argv[1], baud, 8, 1, 'N', &channel, &saved) != 0) {
        perror(argv[1]);
        return 1;
    }
    sigset_t held_back;
    sigemptyset(&held_back);
    sigaddset(&held_back, SIGINT);
    sigprocmask(SIG_BLOCK, &held_back, NULL);
    printf("Echoing on %s (channel %d)\n", argv[1], channel);
    fflush(stdout);

    long total = 0;
    long echoed = 0;
    while (!stop_requested() && (echoed = echo_once(channel)) >= 0) {
        total += echoed;
    }
    tcsetattr(tty_getinstfd(channel), TCSANOW, &saved);
    printf("%ld bytes echoed\n", total);
    return 0;
}
