/** @file
 * The scene used when the port provides none.
 */
#include "zet_simulator_scene.h"

namespace
{

const zet_simulator_scene_t default_scene = {
    3,
    0,
    0,
    0,
    {
        // A small reflector.
        {0, 0.5F, 0.05F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F},
        // A breathing person.
        {0, 1.2F, 0.5F, 0.0F, 0.004F, 0.25F, 0.0F, 0.0F},
        // A wall.
        {0, 3.5F, 10.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F},
    },
    {},
    {},
    {},
};

} // namespace

const zet_simulator_scene_t *zet_simulator_default_scene(void)
{
    return &default_scene;
}
