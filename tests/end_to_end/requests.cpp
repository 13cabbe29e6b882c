#include "tests/end_to_end/requests.h"

namespace test {

const std::vector<Request>& requests() {
    static const std::vector<Request> all = {
        {"vexo_protocol_version_request",
         [](Application& a, Handed&) { return vexo_protocol_version_request(a.handle, 2, 0); }},
        {"vexo_output_variables_get",
         [](Application& a, Handed& h) {
             return vexo_output_variables_get(a.handle, 0, reinterpret_cast<uint32_t*>(h.bytes));
         },
         Request::page},
        {"vexo_input_variables_get",
         [](Application& a, Handed& h) {
             return vexo_input_variables_get(a.handle, 0, reinterpret_cast<uint32_t*>(h.bytes));
         },
         Request::page},
        {"vexo_control_methods_get",
         [](Application& a, Handed& h) { return vexo_control_methods_get(a.handle, 0, h.bytes); },
         Request::page},
        {"vexo_output_setup_send",
         [](Application& a, Handed& h) {
             uint32_t rows[] = {0, VEXO_INPUT_ROW_MARKER};
             return vexo_output_setup_send(a.handle, 2, rows, 0, &h.recipe_id);
         }},
        {"vexo_input_setup_send",
         [](Application& a, Handed& h) {
             int32_t row = 1;
             return vexo_input_setup_send(a.handle, 1, &row, &h.recipe_id);
         }},
        {"vexo_output_start",
         [](Application& a, Handed&) { return vexo_output_start(a.handle, 0); }, Request::single,
         sim::Port::io, 1},
        {"vexo_output_pause",
         [](Application& a, Handed&) { return vexo_output_pause(a.handle, 0); }, Request::single,
         sim::Port::io, 2},
        {"vexo_get_control_version",
         [](Application& a, Handed& h) { return vexo_get_control_version(a.handle, &h.version); }},
        {"vexo_set_percentvelocity",
         [](Application& a, Handed&) { return vexo_set_percentvelocity(a.handle, 0, 50); }},
        {"vexo_set_getalldigitalinputbits",
         [](Application& a, Handed& h) {
             return vexo_set_getalldigitalinputbits(a.handle, 1, &h.bits);
         }},
        {"cvexo_servo_stop",
         [](Application& a, Handed&) { return cvexo_servo_stop(a.handle, 2, 1.0); },
         Request::single, sim::Port::control},
    };
    return all;
}

void PrintTo(const Request& request, std::ostream* out) {
    *out << request.function;
}

sim::Options small_controller() {
    sim::Options options = on_loopback();
    options.rate = 1;
    options.catalogue.outputs = {{"package_counter", 11, sim::Type::u32},
                                 {"speed_override", 12, sim::Type::f64}};
    options.catalogue.inputs = {{"heartbeat", 21, sim::Type::u32}, {"level", 22, sim::Type::f32}};
    options.catalogue.methods = {
        {"setPercentVelocity", 31}, {"getAllDigitalInputBits", 32}, {"servoStop", 33}};
    return options;
}

void connect_small(Application& app) {
    ASSERT_NO_FATAL_FAILURE(app.connect());
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
    ASSERT_NO_FATAL_FAILURE(app.set_up_output("package_counter"));
}

}  // namespace test
