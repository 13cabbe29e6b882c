/* Says every message once to a simulated controller: traffic MODE INTERFACE ADDRESS. */
#include <stdlib.h>
#include <string.h>

#include "client/commands.h"
#include "client/name_index.h"
#include "client/vexo.h"
#include "log/utilities.h"

typedef struct __attribute__((packed)) Package {
    uint16_t length;
    uint8_t letter, recipe;
    uint32_t count;
    uint8_t values[2048];
} Package;

static void wait_for_packages(uint32_t robot) {
    Package latest = {0};
    while (latest.length == 0 || latest.count < 2) {
        vexo_delay_ms(10);
        vexo_ouput_data_receive(robot, 0, &latest, sizeof latest);
    }
}

static int row_of(uint32_t robot, const char* method) {
    return find_method_index(robot, method);
}

static int say_all(uint32_t robot) {
    int32_t rows[7];
    int32_t input_rows[2];
    uint32_t recipe;
    uint32_t input_recipe;
    const double joints[6] = {0.5, -1, 0, 0, 0, 0.25};
    const double vector[6] = {1, 2, 3, 4, 5, 6};
    const uint8_t inputs[9] = {0, 0, 0, 0, 0, 0, 0xE0, 0x3F, 1};
    VexoControllerVersion version;
    uint64_t bits;
    multi_find(robot, "package_counter,flag,small,wide,ratio,pose,label", VEXO_FIND_OUTPUT, rows);
    multi_find(robot, "speed,enable", VEXO_FIND_INPUT, input_rows);
    if (vexo_get_control_version(robot, &version) != 0 ||
        vexo_output_setup_send(robot, 7, (uint32_t*)rows, 0, &recipe) != 0 ||
        vexo_input_setup_send(robot, 2, input_rows, &input_recipe) != 0 ||
        vexo_output_start(robot, 0) != 0) {
        return 1;
    }
    wait_for_packages(robot);
    vexo_input_data_send(robot, input_recipe, inputs);
    cvexo_servoj(robot, row_of(robot, "servoJ"), 0.008, 1, vector, 6, joints);
    vexo_set_getalldigitalinputbits(robot, row_of(robot, "getAllDigitalInputBits"), &bits);
    vexo_set_setstandarddigitalout(robot, row_of(robot, "setStandardDigitalOut"), 3, 1);
    cvexo_servo_stop(robot, row_of(robot, "servoStop"), 2.5);
    vexo_set_percentvelocity(robot, row_of(robot, "setPercentVelocity"), 500);
    return vexo_output_pause(robot, 0);
}

int main(int argc, char** argv) {
    uint32_t robot;
    if (argc != 4 || vexo_create_handle(&robot, argv[3]) != 0) {
        return 2;
    }
    const int mode = atoi(argv[1]);
    if (vexo_create(robot, argv[3], argv[2], mode, NULL) != 0 ||
        vexo_protocol_version_request(robot, mode, 0) != 0 || vexo_all_recipe_get(robot) != 0) {
        return 1;
    }
    const int status = say_all(robot);
    vexo_destroy(robot);
    return status;
}
