#include "tools/capture/packet_source.h"

#include <net/if.h>
#include <pcap/pcap.h>

#include <cstdio>

namespace capture {
namespace {

// A segment may be larger than any packet on the wire: the network card cuts and joins them.
constexpr int kWholePacket = 262144;
constexpr int kRoom = 16 << 20;  // bytes that wait for us
// Packets are handed over together. One by one each would take as much room as the largest.
constexpr int kLatestMs = 10;
constexpr const char* kOurs =
    "tcp port 2295 or tcp port 2297 or tcp port 2299 or ether proto 0xc815 or "
    "(vlan and (tcp port 2295 or tcp port 2297 or tcp port 2299 or ether proto 0xc815))";

bool is_interface(const std::string& name) {
    return name == "any" || if_nametoindex(name.c_str()) != 0;
}

SourceError interface_error(const std::string& name, int result, const char* text) {
    const std::string cause = "Cannot listen on " + name + ": ";
    switch (result) {
        case PCAP_ERROR_PERM_DENIED:
            return {cause + "this user may not capture packets",
                    "run it as root, or give it the right: setcap cap_net_raw+ep on the program"};
        case PCAP_ERROR_IFACE_NOT_UP:
            return {cause + "the interface is down", "bring it up: ip link set " + name + " up"};
        default:
            return {cause + (*text != '\0' ? text : pcap_statustostr(result)),
                    "see `ip link` for the interfaces that there are"};
    }
}

// Pcap files number some of them in several ways.
LinkType link_type_of(int number) {
    constexpr int kIpOfBsd = 14;
    constexpr int kLoopbackOfBsd = 108;
    return number == kIpOfBsd         ? LinkType::ip
           : number == kLoopbackOfBsd ? LinkType::loopback
                                      : static_cast<LinkType>(number);
}

}  // namespace

PacketSource::PacketSource(const std::string& name) : name_(name), live_(is_interface(name)) {
    if (live_) {
        open_interface();
    } else {
        open_file();
    }
}

PacketSource::~PacketSource() = default;

void PacketSource::Close::operator()(pcap* handle) const {
    pcap_close(handle);
}

void PacketSource::open_interface() {
    char error[PCAP_ERRBUF_SIZE] = "";
    handle_.reset(pcap_create(name_.c_str(), error));
    if (handle_ == nullptr) {
        throw interface_error(name_, 0, error);
    }
    pcap_t* handle = handle_.get();
    pcap_set_snaplen(handle, kWholePacket);
    pcap_set_promisc(handle, 1);
    pcap_set_timeout(handle, kLatestMs);
    pcap_set_buffer_size(handle, kRoom);
    pcap_set_tstamp_precision(handle, PCAP_TSTAMP_PRECISION_NANO);
    if (const int result = pcap_activate(handle); result < 0) {
        throw interface_error(name_, result, pcap_geterr(handle));
    }
    // On links without such addresses the kernel cannot choose: then all packets are looked at.
    bpf_program program{};
    if (pcap_compile(handle, &program, kOurs, 1, PCAP_NETMASK_UNKNOWN) == 0) {
        pcap_setfilter(handle, &program);
        pcap_freecode(&program);
    }
    pcap_setnonblock(handle, 1, error);
}

void PacketSource::open_file() {
    char error[PCAP_ERRBUF_SIZE] = "";
    handle_.reset(
        pcap_open_offline_with_tstamp_precision(name_.c_str(), PCAP_TSTAMP_PRECISION_NANO, error));
    if (handle_ == nullptr) {
        throw SourceError("Cannot read " + name_ + ": " + error,
                          "name a capture file of tcpdump or Wireshark, or an interface of `ip "
                          "link`");
    }
}

int PacketSource::descriptor() const {
    return pcap_get_selectable_fd(handle_.get());
}

PacketSource::Next PacketSource::next(Packet& packet) {
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(handle_.get(), &header, &bytes);
    if (result == PCAP_ERROR_BREAK) {
        return Next::end;
    }
    if (result < 0) {
        throw SourceError(name_ + ": " + pcap_geterr(handle_.get()),
                          live_ ? "see whether the interface is still there: ip link"
                                : "the packets before that are good; capture anew for the rest");
    }
    if (result == 0) {
        return Next::nothing;
    }
    packet.time_ns = int64_t{header->ts.tv_sec} * 1'000'000'000 + header->ts.tv_usec;
    packet.link = link_type_of(pcap_datalink(handle_.get()));
    packet.bytes = {bytes, header->caplen};
    return Next::packet;
}

uint64_t PacketSource::dropped() const {
    pcap_stat counts{};
    return live_ && pcap_stats(handle_.get(), &counts) == 0 ? counts.ps_drop : 0;
}

}  // namespace capture
