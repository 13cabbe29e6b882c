// Without this the whole calling order of an application, from the log's start to its end, could
// break.
#include <functional>
#include <optional>

#include "tests/end_to_end/application.h"
#include "tests/support/system_calls.h"

using namespace test;
using ::testing::HasSubstr;

namespace {

// Where the values of the packages lie: a counter, the speed override, the bits of the outputs, six
// joints, the running number of the servo command, and two inputs that the controller echoes.
constexpr char kOutputs[] =
    "package_counter,speed_override,digital_output_bits,actual_joint_positions,servo_sequence,"
    "input_int_register_3,input_double_register_5";
constexpr char kInputs[] = "input_double_register_5,input_int_register_3";
constexpr size_t kCounter = 0;
constexpr size_t kSpeed = 4;
constexpr size_t kBits = 12;
constexpr size_t kJoints = 20;
constexpr size_t kSequence = 68;
constexpr size_t kEchoedInt = 72;
constexpr size_t kEchoedDouble = 76;
constexpr size_t kPackageLength = 4 + 84;

constexpr double kTarget[6] = {0.1, -1.1, 1.5, -0.3, 1.4, 0.2};

template <typename T>
bool shows(const Application& app, size_t offset, T value) {
    return wait_until([&] { return app.latest().value<T>(offset) == value; });
}

void check_catalogue(const Application& app) {
    const sim::Catalogue published = sim::Catalogue::built_in();
    ASSERT_EQ(app.member(kOutputCountOffset), published.outputs.size());
    ASSERT_EQ(app.member(kInputCountOffset), published.inputs.size());
    ASSERT_EQ(app.member(kMethodCountOffset), published.methods.size());
    for (size_t row = 0; row < published.outputs.size(); ++row) {
        const uint8_t* entry = app.dataspace() + kOutputsOffset + row * 108;
        EXPECT_EQ(find_output_index(app.handle, published.outputs[row].name.c_str()),
                  static_cast<int32_t>(row));
        EXPECT_EQ(read_u32(entry + 100), published.outputs[row].id);
        EXPECT_EQ(entry[104], static_cast<uint8_t>(published.outputs[row].type));
        EXPECT_EQ(entry[105], sim::width(published.outputs[row].type));
    }
}

void exchange_data(const Application& app) {
    EXPECT_TRUE(wait_until([&] { return app.latest().value<uint32_t>(kCounter) > 0; }));
    EXPECT_EQ(app.latest().length(), kPackageLength);
    EXPECT_EQ(app.latest().bytes[2], 'U');
    EXPECT_EQ(app.latest().bytes[3], app.output_recipe);

    uint8_t values[12];
    const double real = -2.5;
    const int32_t number = 123456789;
    std::memcpy(values, &real, 8);
    std::memcpy(values + 8, &number, 4);
    EXPECT_EQ(vexo_input_data_send(app.handle, app.input_recipe, values), 0);
    EXPECT_TRUE(shows(app, kEchoedInt, number));
    EXPECT_TRUE(shows(app, kEchoedDouble, real));
}

void move(const Application& app) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(app.servo(0.001, {std::begin(kTarget), std::end(kTarget)}), 0);
    }
    EXPECT_TRUE(shows<uint32_t>(app, kSequence, 10));
    for (size_t joint = 0; joint < 6; ++joint) {
        EXPECT_TRUE(wait_until([&] {
            const auto at = app.latest().value<double>(kJoints + joint * 8);
            return at > kTarget[joint] - 0.001 && at < kTarget[joint] + 0.001;
        })) << joint;
    }
    EXPECT_EQ(cvexo_servo_stop(app.handle, app.method("servoStop"), 2.0), 0);
}

void command(const Application& app) {
    const uint32_t h = app.handle;
    EXPECT_EQ(vexo_set_percentvelocity(h, app.method("setPercentVelocity"), 40), 0);
    EXPECT_TRUE(shows(app, kSpeed, 40.0));
    EXPECT_EQ(vexo_set_percentvelocity(h, app.method("setPercentVelocity"), 101), 5);
    EXPECT_EQ(vexo_set_setstandarddigitalout(h, app.method("setStandardDigitalOut"), 3, 1), 0);
    EXPECT_EQ(vexo_set_setconfigurabledigitalout(h, app.method("setConfigurableDigitalOut"), 1, 1),
              0);
    EXPECT_EQ(vexo_set_settooldigitalout(h, app.method("setToolDigitalOut"), 2, 1), 0);
    const uint64_t expected = 1U << 3 | 1U << 17 | 1U << 26;
    uint64_t bits = 0;
    EXPECT_EQ(vexo_set_getalldigitaloutputbits(h, app.method("getAllDigitalOutputBits"), &bits), 0);
    EXPECT_EQ(bits, expected);
    EXPECT_TRUE(shows(app, kBits, expected));
    EXPECT_EQ(vexo_set_getalldigitalinputbits(h, app.method("getAllDigitalInputBits"), &bits), 0);
    EXPECT_EQ(bits, 0U);
    EXPECT_EQ(cvexo_resterror(h, app.method("resetError")), 0);
}

void pause_and_destroy(Application& app) {
    EXPECT_EQ(vexo_output_pause(app.handle, 0), 0);
    EXPECT_EQ(app.latest().result, VEXO_ERROR_NOT_FOUND);
    const uint8_t* store = app.dataspace() + kStoreOffset;
    EXPECT_EQ(vexo_output_start(app.handle, 0), 0) << "may go on";
    EXPECT_TRUE(wait_until([&] { return app.latest().value<uint32_t>(kCounter) > 0; }));
    EXPECT_EQ(store[2], 'U');
    EXPECT_EQ(vexo_output_pause(app.handle, 0), 0);
    EXPECT_EQ(app.destroy(), 0);
    EXPECT_EQ(check_Handle(app.handle), 0U);
    EXPECT_EQ(VexoHandlelist[0], 0U);
    EXPECT_EQ(VexoHandlelist[1], 0U);
    EXPECT_EQ(app.latest().result, -1);
    EXPECT_EQ(vexo_destroy(app.handle), -1);
}

void whole_order(int64_t mode, const std::string& address) {
    log_init();
    Application app(address);
    ASSERT_NO_FATAL_FAILURE(app.connect(mode));
    ASSERT_NO_FATAL_FAILURE(app.load_catalogue());
    ASSERT_NO_FATAL_FAILURE(check_catalogue(app));
    ASSERT_NO_FATAL_FAILURE(app.set_up_output(kOutputs));
    ASSERT_NO_FATAL_FAILURE(app.set_up_input(kInputs));
    EXPECT_EQ(app.latest().result, VEXO_ERROR_NOT_FOUND) << "not started";
    ASSERT_NO_FATAL_FAILURE(app.start());
    exchange_data(app);
    move(app);
    command(app);
    VexoControllerVersion version{};
    EXPECT_EQ(vexo_get_control_version(app.handle, &version), 0);
    EXPECT_STREQ(version.firmware, "3.2.17");
    pause_and_destroy(app);
    const std::string log = Session::finished_log(address);
    EXPECT_THAT(log, HasSubstr("vexo_set_percentvelocity Error: 5\n"));
    EXPECT_THAT(log, HasSubstr("vexo_destroy vexoHandle " + std::to_string(app.handle) + "\n"));
    EXPECT_THAT(Session::finished_log("sys_log"), HasSubstr("firmware_version:3.2.17\n"));
}

class CallingOrder : public ::testing::TestWithParam<int64_t> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Version, CallingOrder, ::testing::Values(1, 2));

TEST_P(CallingOrder, WorksAndWorksAgainInANewProcess) {
    const std::string address = own_loopback();
    ChildProcess first([&] { whole_order(GetParam(), address); });
    std::optional<sim::Simulator> controller;
    controller.emplace(on_loopback());
    EXPECT_TRUE(first.run());
    EXPECT_TRUE(wait_until([&] { return !controller->streaming(); }));
    EXPECT_EQ(controller->counters().refused, 1U);

    controller.reset();
    controller.emplace(on_loopback());
    whole_order(GetParam(), address);
    EXPECT_EQ(controller->counters().refused, 1U);
    EXPECT_EQ(controller->set_points().size(), 10U);
    EXPECT_EQ(controller->inputs().size(), 1U);
}
