#include "tests/faults/rows.h"

#include <set>

namespace {

using namespace test;

// A suite each: they run side by side.

TEST(fault_sweep_client, finds_every_failure_handled) {
    sweep(client_rows());
}

TEST(fault_sweep_services, finds_every_failure_handled) {
    sweep(service_rows());
}

TEST(fault_sweep_ipc, finds_every_failure_handled) {
    sweep(ipc_rows());
}

TEST(fault_sweep_tables, finds_every_failure_handled) {
    sweep(table_rows());
}

TEST(fault_sweep_kernel_channel, finds_every_failure_handled) {
    sweep(kernel_rows());
}

TEST(fault_sweep_requests, finds_every_failure_handled) {
    sweep(request_rows());
}

TEST(fault_sweep, the_other_operations_make_no_call_that_could_fail) {
    for (const Row &row : quiet_rows())
        EXPECT_EQ(calls_of(row), "") << row.operation;
}

std::vector<Row> all_rows() {
    std::vector<Row> all;
    for (const auto &rows :
         {client_rows(), service_rows(), ipc_rows(), table_rows(), kernel_rows(), request_rows(), quiet_rows()})
        all.insert(all.end(), rows.begin(), rows.end());
    return all;
}

TEST(fault_sweep, no_operation_writes_a_line_with_all_flags_off) {
    for (const Row &row : all_rows())
        EXPECT_EQ(unasked_lines(row), "") << row.operation;
}

TEST(fault_sweep, has_every_exported_operation) {
    std::set<std::string> covered;
    for (const Row &row : all_rows()) {
        const std::string name = row.operation;
        covered.insert(name.substr(0, name.find(',')));
    }
    const std::vector<std::string> exported{
#include "exported_names.inc"
    };
    for (const std::string &name : exported)
        EXPECT_TRUE(name.starts_with("g_") || name == "vlan_group_mng" || covered.contains(name)) << name;
}

} // namespace
