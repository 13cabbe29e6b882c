#include "tools/vexo/doctor/ethtool.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace doctor {
namespace {

// Asks for one record of the kernel, which begins with the number of the question. A driver that
// has no such thing makes the fact an absent one.
template <class Record>
Fact<Record> ask(const std::string& name, uint32_t question) {
    Record record{};
    record.cmd = question;
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_data = reinterpret_cast<char*>(&record);
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool answered = socket >= 0 && ioctl(socket, SIOCETHTOOL, &request) == 0;
    const int cause = errno;
    if (socket >= 0) {
        close(socket);
    }
    if (answered) {
        return record;
    }
    return cause == EOPNOTSUPP
               ? Fact<Record>::absent("the driver of " + name + " has no such thing")
               : Fact<Record>::unknown(name + ": " + std::strerror(cause));
}

}  // namespace

void ask_driver(const std::string& name, Interface& interface) {
    const auto moderation = ask<ethtool_coalesce>(name, ETHTOOL_GCOALESCE);
    interface.rx_usecs = moderation.then(
        [](const ethtool_coalesce& record) { return int64_t{record.rx_coalesce_usecs}; });
    interface.adaptive_rx = moderation.then(
        [](const ethtool_coalesce& record) { return record.use_adaptive_rx_coalesce != 0; });
    interface.energy_efficient =
        ask<ethtool_eee>(name, ETHTOOL_GEEE).then([](const ethtool_eee& record) {
            return record.eee_enabled != 0;
        });
}

}  // namespace doctor
