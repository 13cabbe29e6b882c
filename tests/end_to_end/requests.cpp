#include "tests/end_to_end/requests.h"

#include <algorithm>
#include <atomic>

namespace test {

namespace {

using enum Receives;

// Rows of the small controller's catalogue of methods.
enum Method : int32_t { percent_velocity, input_bits, output_bits, servo_stop, servo_j, anything };

template <int64_t mode, uint32_t nack>
int32_t negotiate(Application& app, Handed&) {
    return vexo_protocol_version_request(app.handle, mode, nack);
}

template <auto get>
int32_t variables(Application& app, Handed& handed) {
    return get(app.handle, 0, reinterpret_cast<uint32_t*>(handed.bytes));
}

int32_t methods(Application& app, Handed& handed) {
    return vexo_control_methods_get(app.handle, 0, handed.bytes);
}

int32_t catalogue(Application& app, Handed&) {
    return vexo_all_recipe_get(app.handle);
}

int32_t output_recipe(Application& app, Handed& handed) {
    uint32_t rows[] = {0, VEXO_INPUT_ROW_MARKER};
    return vexo_output_setup_send(app.handle, 2, rows, 0, &handed.recipe_id);
}

int32_t input_recipe(Application& app, Handed& handed) {
    int32_t row = 1;
    return vexo_input_setup_send(app.handle, 1, &row, &handed.recipe_id);
}

template <auto switch_stream>
int32_t stream(Application& app, Handed&) {
    return switch_stream(app.handle, 0);
}

int32_t version(Application& app, Handed& handed) {
    return vexo_get_control_version(app.handle, &handed.version);
}

template <auto command>
int32_t plain(Application& app, Handed&) {
    return command(app.handle, anything);
}

template <auto command, int32_t row>
int32_t number(Application& app, Handed&) {
    return command(app.handle, row, 50.0);
}

template <auto command>
int32_t output(Application& app, Handed&) {
    return command(app.handle, anything, 7, 255);
}

template <auto command, int32_t row>
int32_t bits(Application& app, Handed& handed) {
    return command(app.handle, row, &handed.bits);
}

int32_t servo(Application& app, Handed&) {
    return app.servo(1);
}

constexpr size_t kIo = kIoSocketOffset;
constexpr size_t kControl = kControlSocketOffset;
constexpr char kPlain[] = "06 00 6D 24 00 00";
constexpr char kOutput[] = "0A 00 6D 24 00 02 02 07 01 FF";
constexpr char kLearntAddress[] = "dstmac: 02-00-00-00-00-0B\n";

// One of each kind, which do not care how the packages travel.
const std::vector<Request> kOnEitherPath = {
    {"vexo_output_variables_get", variables<vexo_output_variables_get>, "07 00 52 00 00 00 00",
     page},
    {"vexo_output_setup_send", output_recipe, "11 00 4F 00 00 00 00 02 00 0B 00 00 00 15 00 00 00"},
    {"vexo_input_setup_send", input_recipe, "09 00 49 01 00 16 00 00 00"},
    {"vexo_output_start", stream<vexo_output_start>, "03 00 53", single, kIo, 2, "", 1},
    {"vexo_output_pause", stream<vexo_output_pause>, "03 00 50", single, kIo, 2, "", 2},
    {"vexo_get_control_version", version, "03 00 76"},
    {"vexo_set_percentvelocity", number<vexo_set_percentvelocity, percent_velocity>,
     "0F 00 6D 1F 00 01 0B 00 00 00 00 00 00 49 40"},
    {"vexo_set_getalldigitalinputbits", bits<vexo_set_getalldigitalinputbits, input_bits>,
     "06 00 6D 20 00 00"},
    {"cvexo_servo_stop", number<cvexo_servo_stop, servo_stop>,
     "0F 00 6D 22 00 01 0B 00 00 00 00 00 00 49 40", single, kControl},
};

const std::vector<Request> kOthers = {
    {"vexo_protocol_version_request", negotiate<1, 0>, "0B 00 56 01 00 00 00 00 00 00 00", single,
     kIo, 1, "1"},
    {"vexo_protocol_version_request", negotiate<2, 0>, "0B 00 56 02 00 00 00 00 00 00 00", single,
     kIo, 2, "2"},
    {"vexo_protocol_version_request", negotiate<3, 0>,
     "11 00 56 03 00 01 00 00 00 00 00 02 00 00 00 00 0A", single, kIo, 3, "", 0, kLearntAddress},
    {"vexo_protocol_version_request", negotiate<3, 1>,
     "11 00 56 03 00 03 00 00 00 00 00 02 00 00 00 00 0A", single, kIo, 3, "nack", 0,
     kLearntAddress},
    {"vexo_input_variables_get", variables<vexo_input_variables_get>, "07 00 72 00 00 00 00", page},
    {"vexo_control_methods_get", methods, "07 00 4D 00 00 00 00", page},
    {"vexo_control_methods_get", catalogue, "07 00 4D 00 00 00 00", page, kIo, 2,
     "within_catalogue", 0, "", true},
    {"vexo_set_setstandarddigitalout", output<vexo_set_setstandarddigitalout>, kOutput},
    {"vexo_set_setconfigurabledigitalout", output<vexo_set_setconfigurabledigitalout>, kOutput},
    {"vexo_set_settooldigitalout", output<vexo_set_settooldigitalout>, kOutput},
    {"vexo_set_getalldigitaloutputbits", bits<vexo_set_getalldigitaloutputbits, output_bits>,
     "06 00 6D 21 00 00"},
    {"cvexo_resterror", plain<cvexo_resterror>, kPlain},
    {"cvexo_startinertiacomp", plain<cvexo_startinertiacomp>, kPlain},
    {"cvexo_starttorquecomp", plain<cvexo_starttorquecomp>, kPlain},
    {"cvexo_stopinertiacomp", plain<cvexo_stopinertiacomp>, kPlain},
    {"cvexo_stoptorquecomp", plain<cvexo_stoptorquecomp>, kPlain},
    {"cvexo_startlogoutput", plain<cvexo_startlogoutput>, kPlain},
    {"cvexo_startsensorforceinput", plain<cvexo_startsensorforceinput>, kPlain},
    {"cvexo_stopsensorforceinput", plain<cvexo_stopsensorforceinput>, kPlain},
    {"cvexo_servoj", servo, "", hasty, kControl, 1, "1"},
    {"cvexo_servoj", servo, "", hasty, kControl, 2, "2"},
};

}  // namespace

const std::vector<Request>& requests() {
    static const std::vector<Request> all = [] {
        std::vector<Request> result = kOthers;
        for (Request request : kOnEitherPath) {
            result.push_back(request);
            request.mode = 3;
            result.push_back(request);
        }
        return result;
    }();
    return all;
}

std::vector<Request> those_with(std::initializer_list<Receives> kinds) {
    std::vector<Request> result;
    std::ranges::copy_if(requests(), std::back_inserter(result), [&](const Request& request) {
        return std::ranges::find(kinds, request.receives) != kinds.end();
    });
    return result;
}

std::string name_of(const Request& request) {
    const std::string path = request.mode > 2 ? "_raw" : "";
    const std::string variant = request.variant;
    return request.function + path + (variant.empty() ? "" : "_" + variant);
}

void PrintTo(const Request& request, std::ostream* out) {
    *out << name_of(request);
}

sim::Options small_controller() {
    sim::Options options = on_loopback();
    options.rate = 1;
    options.catalogue.outputs = {{"package_counter", 11, sim::Type::u32},
                                 {"speed_override", 12, sim::Type::f64}};
    options.catalogue.inputs = {{"heartbeat", 21, sim::Type::u32}, {"level", 22, sim::Type::f32}};
    options.catalogue.methods = {{"setPercentVelocity", 31},
                                 {"getAllDigitalInputBits", 32},
                                 {"getAllDigitalOutputBits", 33},
                                 {"servoStop", 34},
                                 {"servoJ", 35},
                                 {"anything", 36}};
    return options;
}

void connect_small(Application& app, int64_t mode) {
    ASSERT_NO_FATAL_FAILURE(app.connect(mode));
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
    ASSERT_NO_FATAL_FAILURE(app.set_up_output("package_counter"));
}

void RequestFixture::SetUp() {
    if (request_.receives == hasty) {
        run_ahead_of_others();
    }
    sim::Options options = small_controller();
    if (request_.mode > 2) {
        if (const std::string reason = enter_own_network(); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        put_something_at_descriptor_zero();
        options.interface = "robot0";
    }
    controller_.emplace(options);
    app_.emplace();
    ASSERT_NO_FATAL_FAILURE(connect_small(*app_, request_.mode));
    ASSERT_EQ(call().result, 0);
    reply_size_ = app_->dataspace()[kResponseOffset];
    std::atomic_ref(app_->dataspace()[kStreamingOffset]) = 0;  // the receive thread may look
}

void RequestFixture::TearDown() {
    if (app_) {
        EXPECT_EQ(app_->destroy(), 0);
    }
}

Outcome RequestFixture::call() {
    std::memset(handed_.bytes, 0xA5, sizeof handed_.bytes);
    return outcome_of([&] { return request_.call(*app_, handed_); });
}

void RequestFixture::inject(const std::string& fault) {
    controller_->inject(sim::parse_fault((request_.within_catalogue ? "type=M," : "") + fault));
}

Bytes RequestFixture::state() const {
    return bytes_of(0, kServoCounterOffset) + bytes_of(kOutputsOffset, kStreamingOffset) +
           bytes_of(kOutputRecipeOffset, kRawSocketOffset + 4) +
           bytes_of(kOutputLengthOffset, kOutputLengthOffset + 84);
}

}  // namespace test
