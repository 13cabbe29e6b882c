/* The fast path: raw messages between this host and a controller, past TCP.

   Two modes. In Ethernet mode a message is a bare Ethernet frame with EtherType 0xC815 on a named
   network interface. In IP mode it is an IPv4 datagram of protocol ICMP. Up to 8 instances exist at
   a time; an instance is named by its number, 0 to 7.

   Sending: keep the start of the buffer, advance a write position past the header with
   socket_raw_applysendbuf, write the payload there, hand the whole buffer to socket_raw_sendto,
   which fills in the header in place. Receiving: socket_raw_recvfrom receives into the buffer and
   advances the position to the payload. No call allocates or copies a message.

   Threads: no call takes a lock. Instances are created and freed by one thread at a time and never
   while another thread uses the same instance. One thread at a time sends on an instance, one at a
   time receives on it; the two may be different threads. The setters may be called at any time
   while the instance exists. Nothing here prints or logs.

   Pointers must not be null unless it is said that they may. The sockets need the capabilities
   CAP_NET_RAW and, to raise interface flags, CAP_NET_ADMIN; docs/fast-path.md tells how to give
   them. */
#ifndef NET_RAW_SOCKET_H
#define NET_RAW_SOCKET_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* The modes of socket_raw_create. */
enum {
    SOCKET_RAW_MODE_IP = 1,      /* ICMP-protocol IPv4 datagrams */
    SOCKET_RAW_MODE_ETHERNET = 2 /* bare Ethernet frames, EtherType 0xC815 */
};

/* Results below zero, beside the -1 of the system. */
enum {
    SOCKET_RAW_BAD_INSTANCE = -100, /* no such instance; or IP mode and no peer address */
    SOCKET_RAW_NOTHING = -101,      /* no message: none came in time, interrupted, or an error */
    SOCKET_RAW_MALFORMED = -102,    /* not a message of ours, or longer than what was received */
    SOCKET_RAW_BAD_CHECKSUM = -103  /* altered on the way */
};

/* The group address 01:0E:CF:00:00:00, the destination of every new instance. */
extern VEXO_API uint8_t sock_raw_mcast_addr[6];

/* Reads the hardware address of the interface `interface_name` into `mac`. Of the name, the first
   15 characters count; null is taken as an empty name.
   Returns 0, or -1 with errno set (no such interface) and `mac` untouched. Any thread. */
VEXO_API int socket_get_macaddress(const char* interface_name, uint8_t mac[6]);

/* Opens the lowest free instance.
   `interface_name`: the network interface (at most 15 characters count; null is taken as an empty
   name). In Ethernet mode the instance is bound to it, its flags are raised to broadcast and
   multicast, and its hardware address becomes the source address. An unknown name is no failure:
   such an instance is bound to every interface, so it receives from all of them, and cannot send.
   In IP mode only the source address is taken from it, which that mode does not use.
   `mode`: SOCKET_RAW_MODE_IP or SOCKET_RAW_MODE_ETHERNET in the low 16 bits; the rest is ignored.
   When the hardware address cannot be read, the source address is the one that the last user of
   the same instance left (zeros at first). The sequence number starts at 0, the destination at
   sock_raw_mcast_addr, and no IP peer is known.
   Returns the instance (0 to 7); -1 when none is free, on another mode, or when the system refuses
   the socket (errno tells, usually EPERM), and then no instance is taken. When it is the binding
   that fails, the descriptor of the socket stays open. */
VEXO_API int socket_raw_create(const char* interface_name, int mode);

/* Closes the instance and makes its number free again. Returns 0 or -100. */
VEXO_API int socket_raw_free(int instance);

/* Sets the IPv4 address (host byte order) to which an IP-mode instance sends.
   Returns 0, or -100 for a bad instance or the address 0. */
VEXO_API int socket_raw_set_peerip(int instance, uint32_t address);

/* Sets the destination hardware address of the frames sent. Returns 0 or -100. */
VEXO_API int socket_raw_set_dstmac(int instance, const uint8_t mac[6]);

/* Sets the source hardware address of the frames sent. Returns 0 or -100. */
VEXO_API int socket_raw_set_srcmac(int instance, const uint8_t mac[6]);

/* Reads the source hardware address of the frames sent. Returns 0 or -100. */
VEXO_API int socket_raw_get_srcmac(int instance, uint8_t mac[6]);

/* Advances the write position `*position` past the space that the header takes.
   Returns that space in bytes, 26 in Ethernet mode and 8 in IP mode, or -100. */
VEXO_API int socket_raw_applysendbuf(int instance, uint8_t** position);

/* The Internet checksum (RFC 1071) of `count` bytes, computed over 16-bit words in host order, so
   that it is stored in host order as well; an odd last byte counts as a word padded with zero.
   `data` needs no alignment, and may be null when `count` is 0 or less, which is no data.
   Returns 0 to 0xFFFF; 0xFFFF for no data. Any thread. */
VEXO_API uint32_t socket_raw_ip_cksum(const uint16_t* data, int count);

/* Fills in the header at the start of `frame` and sends the frame.
   `code`: tells the receiver what the payload is (144 output data, 145 input data, 146 servo-joint
   command and its reply).
   `frame`: `length` bytes, header space included. Of the header only the two reserved bytes at
   offset 24 (Ethernet mode) are left as they are. The frame goes out with the length given; if that
   is shorter than the header, the fields that do not fit are left out, and nothing is touched
   beyond `length`. What is too short or too long for the link is refused by the system.
   Ethernet mode sends on the interface of the instance, IP mode to the peer, which has been set or
   learned. The sequence number counts on with every call that gets as far as the header, whatever
   the system answers, and wraps from 65535 to 0.
   Returns the bytes sent; -1 with errno set when the system refuses; -100 for a bad instance or
   when IP mode knows no peer; -102 when the record of the instance is not valid. Waits for room in
   the interface's queue for the shortest time that the system knows, one tick. */
VEXO_API long socket_raw_sendto(int instance, uint8_t code, void* frame, int length);

/* Receives one message and checks it.
   `code`: receives the message code, when the result is at least 0 or is -103.
   `position`: in, where to receive; out, advanced toward the payload.
   `capacity`: bytes that may be written at `*position`. A longer message is cut.

   Ethernet mode waits at most one tick of the system. A good frame advances the position by 26,
   also if 802.1Q tags stand before the header, so that the position is then 4 bytes short of the
   payload for each tag. (The system takes the outer tag off by itself.) The checksum field in the
   buffer is left 0 once the checksum has been looked at. Addresses are not looked at.

   IP mode waits without limit. The buffer begins with the IPv4 header, past which the position is
   advanced before any check, so also with the result -102. A good message advances it by 8 more,
   and its sender becomes the peer. There is no checksum test in this mode. An instance sees every
   ICMP datagram that reaches the host; all but its own kind give -102.

   Returns the payload length in bytes; -100 for a bad instance; -101 when nothing was received (in
   time, or errno tells); -102 when the message is shorter than its header, carries another marker
   or magic number, or (Ethernet mode) a payload length beyond what was received; -103 (Ethernet
   mode) when the checksum differs. */
VEXO_API long socket_raw_recvfrom(int instance, uint8_t* code, uint8_t** position,
                                  unsigned capacity);

VEXO_C_END

#endif
