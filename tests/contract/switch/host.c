/* A host on the made-up switch, whose bridge server does not run. */
#include <bridge/bridge.h>

#include <switch_loop.h>

int main(void) {
    struct qv_thread_master *loop = switch_loop();
    if (loop == NULL || bridge_agent_init("on_switch", loop) != 0)
        return 1;
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    switch_loop_run(loop, 4);
    return g_bridge_client->connected;
}
