/* Makes itself known by numbered datagrams, one a second, and shows who answers.
 *
 *   udp_beacon ADDRESS PORT COUNT    e.g. udp_beacon 192.168.1.255 4000 10
 *
 * An address that ends in 255 reaches all hosts of the network. */
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

#include "log/utilities.h"
#include "net/select.h"
#include "net/tcp.h"
#include "net/udp.h"

/* Shows the answers that have come. Returns 0, or -1 when the socket fails. */
static int show_answers(int fd) {
    int ready;
    while ((ready = sys_generic_select_multiread(&fd, 1, 0, NULL)) > 0) {
        char text[64];
        uint16_t port = 0;
        uint32_t address = 0;
        const long length = socket_udp_recvfrom(fd, &port, &address, text, sizeof text);
        if (length < 0) {
            return -1;
        }
        printf("%s:%u answers: %.*s\n", socket_tcp_inet_ntoa(address), port, (int)length, text);
        fflush(stdout);
    }
    return ready;
}

static int run(int fd, uint32_t address, int port, int count) {
    for (int i = 1; i <= count; ++i) {
        char beacon[32];
        const int length = snprintf(beacon, sizeof beacon, "beacon %d", i);
        if (socket_udp_sendto(fd, port, address, beacon, (unsigned int)length) != length) {
            return -1;
        }
        vexo_delay_ms(1000);
        if (show_answers(fd) != 0) {
            return -1;
        }
    }
    return 0;
}

int main(int argc, char** argv) {
    struct in_addr address;
    if (argc != 4 || inet_pton(AF_INET, argv[1], &address) != 1) {
        fprintf(stderr, "usage: udp_beacon ADDRESS PORT COUNT\n");
        return 2;
    }
    int fd = socket_udp_create(0, 0);
    const int result = run(fd, ntohl(address.s_addr), atoi(argv[2]), atoi(argv[3]));
    if (result != 0) {
        perror("udp_beacon");
    }
    socket_udp_close(&fd);
    return result == 0 ? 0 : 1;
}
