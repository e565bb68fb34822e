/* The daemon's tests in C. A step that fails ends the program with status 1 and says what happened until then. */
#undef NDEBUG
#include <bridge/testkit.h>

#include <assert.h>
#include <stdlib.h>

static struct btk_world *begin_with_daemon(void) {
    struct btk_world *world = btk_begin(&(struct btk_options){.time_scale = 10});
    if (world == NULL || btk_start(world, (const char *const[]){getenv("VLAN_KEEPER"), "900", NULL}) == NULL)
        exit(EXIT_FAILURE);
    btk_must(world, "wait vlan 900 exists");
    return world;
}

static void deleted_vlan_comes_back(void) {
    struct btk_world *world = begin_with_daemon();
    btk_must(world, "mark");
    btk_must(world, "vlan delete 900");
    btk_must(world, "wait request VLAN_EVENT_CREATE_INDEX vid=900 from vlan_keeper");
    btk_must(world, "wait vlan 900 exists");
    btk_end(world);
}

static void other_vlans_are_left_alone(void) {
    struct btk_world *world = begin_with_daemon();
    btk_must(world, "vlan create 10-12");
    btk_must(world, "vlan delete 11");
    btk_must(world, "never request VLAN_EVENT_CREATE_INDEX from vlan_keeper for 2");
    btk_must(world, "vlan show");
    assert(btk_count(world, "vlans") == 3);
    assert(btk_number(world, "vlans.2.vid") == 900);
    btk_end(world);
}

static void killed_server_finds_it_again(void) {
    struct btk_world *world = begin_with_daemon();
    btk_kill_server(world);
    btk_start_server(world);
    btk_must(world, "wait client vlan_keeper registered");
    btk_must(world, "vlan delete 900");
    btk_must(world, "wait vlan 900 exists");
    btk_end(world);
}

int main(void) {
    deleted_vlan_comes_back();
    other_vlans_are_left_alone();
    killed_server_finds_it_again();
    return EXIT_SUCCESS;
}
