#include "bench/session.h"

#include "bench/machine.h"
#include "client/dataspace.h"

namespace bench {

uint32_t open_session(const Peer& peer, int64_t mode, uint32_t nack, const std::string& interface) {
    const std::string link = interface.empty() ? peer.host_interface() : interface;
    uint32_t handle = 0;
    const std::string address = peer.address();
    require(vexo_create_handle(&handle, address.c_str()) == 0, "no handle");
    require(vexo_create(handle, address.c_str(), link.c_str(), mode, nullptr) == 0,
            "cannot connect");
    require(vexo_protocol_version_request(handle, mode, nack) == 0, "cannot negotiate");
    require(mode < 2 || vexo_all_recipe_get(handle) == 0, "no catalogue");
    const size_t size = peer.options.package_size;
    std::vector<uint32_t> rows = rows_of_package(size > 0 ? size : kUsualPackage);
    uint32_t recipe = 0;
    require(vexo_output_setup_send(handle, static_cast<int32_t>(rows.size()), rows.data(), 0,
                                   &recipe) == 0,
            "no output recipe");
    int32_t input = 0;
    require(mode < 2 || vexo_input_setup_send(handle, 1, &input, &recipe) == 0, "no input recipe");
    return handle;
}

void start_output(uint32_t handle) {
    require(vexo_output_start(handle, 0) == 0, "no output");
}

int control_socket(uint32_t handle) {
    return reinterpret_cast<const vexo::Dataspace*>(get_vexo_dataspace(handle))->control_socket;
}

}  // namespace bench
