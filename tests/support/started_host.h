// A host process that went through the library's own start-up.
#pragma once

#include "client/state.h"
#include "tests/support/server.h"
#include "tests/support/test.h"

namespace test {

class StartedHost : public Env {
  protected:
    // Under this name, its prints kept off the screen.
    static void start(const char *name = "unit") {
        testing::internal::CaptureStdout();
        const int result = bridge_agent_init(name, loop().master());
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, 0);
        faults::clear();
    }

    static bri_clnt_ctx &ctx() { return *g_bridge_client; }
    static bri::client::State &state() { return bri::client::g_state; }
    static Loop &loop() { return Loop::get(); }
};

} // namespace test
