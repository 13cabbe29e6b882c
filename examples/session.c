/* A whole session with a controller: shows two values for a second, and slows the robot down to
 * half its speed meanwhile.
 *
 *   session [ADDRESS]        default 127.0.0.1, where vexo-sim serves */
#include <stdio.h>

#include "client/vexo.h"
#include "log/utilities.h"

/* README begins */
/* An output package: its header, then the values in the order of the recipe, without gaps. */
typedef struct __attribute__((packed)) Package {
    uint16_t length;
    uint8_t letter, recipe;
    double position, speed;
} Package;

static int run(uint32_t robot, const char* address) {
    const int64_t mode = 2; /* TCP; 3 is raw Ethernet */
    if (vexo_create(robot, address, NULL, mode, NULL) != 0 ||
        vexo_protocol_version_request(robot, mode, 0) != 0 || vexo_all_recipe_get(robot) != 0) {
        return 1; /* the library has printed why */
    }
    int32_t rows[2];
    uint32_t recipe;
    multi_find(robot, "actual_joint_position_1,speed_override", VEXO_FIND_OUTPUT, rows);
    if (vexo_output_setup_send(robot, 2, (uint32_t*)rows, 0, &recipe) != 0 ||
        vexo_output_start(robot, 0) != 0) {
        return 1;
    }
    const int32_t set_speed = find_method_index(robot, "setPercentVelocity");
    for (int i = 0; i < 10; ++i) {
        Package latest = {0};
        vexo_delay_ms(100);
        if (vexo_ouput_data_receive(robot, 0, &latest, sizeof latest) == 0 && latest.length > 0) {
            printf("joint 1 at %.3f rad, speed %.0f %%\n", latest.position, latest.speed);
        }
        if (i == 4 && vexo_set_percentvelocity(robot, set_speed, 50.0) != 0) {
            return 1;
        }
    }
    return vexo_output_pause(robot, 0);
}
/* README ends */

int main(int argc, char** argv) {
    const char* address = argc > 1 ? argv[1] : "127.0.0.1";
    uint32_t robot;
    int status = 1;
    log_init();
    if (vexo_create_handle(&robot, address) == 0) {
        status = run(robot, address);
        vexo_destroy(robot);
    }
    log_cleanup();
    return status == 0 ? 0 : 1;
}
