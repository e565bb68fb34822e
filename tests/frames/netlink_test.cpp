// What the kernel's answers and notices come to, whole, cut, mixed and interrupted.
#include "frames/links.h"
#include "tests/support/test.h"

#include <cerrno>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace {

using namespace frames;

using test::ByteVec;

constexpr uint16_t kNotice = RTM_NEWLINK;
constexpr uint32_t kOurs = 7;

// A message of that type with a number behind its head.
ByteVec message(uint16_t type, int number, uint16_t flags = 0, uint32_t sequence = kOurs) {
    const struct {
        nlmsghdr head;
        int number;
    } whole{{sizeof whole, type, flags, sequence, 0}, number};
    const auto bytes = frames::bytes_of(whole);
    return {bytes.begin(), bytes.end()};
}

ByteVec run_of(std::initializer_list<ByteVec> messages) {
    ByteVec run;
    for (const ByteVec &one : messages)
        run.insert(run.end(), one.begin(), one.end());
    return run;
}

struct Outcome {
    std::vector<int> taken;
    std::optional<int> end;
    bool interrupted = false;
};

Outcome outcome_of(const ByteVec &run, uint32_t sequence = kOurs) {
    Outcome outcome;
    outcome.end = for_each_notice(run, sequence, [&](const Notice &notice) {
        outcome.taken.push_back(notice.head<int>());
        outcome.interrupted = outcome.interrupted || notice.interrupted;
    });
    return outcome;
}

TEST(FramesNetlink, notices_alone_leave_more_to_come) {
    const Outcome outcome = outcome_of(run_of({message(kNotice, 1), message(kNotice, 2)}));
    EXPECT_EQ(outcome.taken, (std::vector{1, 2}));
    EXPECT_FALSE(outcome.end);
    EXPECT_FALSE(outcome.interrupted);
}

TEST(FramesNetlink, list_ends_with_what_its_last_message_says) {
    EXPECT_EQ(outcome_of(run_of({message(kNotice, 1), message(NLMSG_DONE, 0)})).end, 0);
    EXPECT_EQ(outcome_of(run_of({message(kNotice, 1), message(NLMSG_DONE, -ENOMEM)})).end, ENOMEM);
}

TEST(FramesNetlink, error_behind_notices_is_the_error) {
    const Outcome outcome =
        outcome_of(run_of({message(kNotice, 1), message(NLMSG_ERROR, -EPERM), message(kNotice, 2)}));
    EXPECT_EQ(outcome.taken, (std::vector{1}));
    EXPECT_EQ(outcome.end, EPERM);
}

TEST(FramesNetlink, list_that_changed_meanwhile_is_told_from_a_whole_one) {
    EXPECT_TRUE(outcome_of(message(kNotice, 1, NLM_F_MULTI | NLM_F_DUMP_INTR)).interrupted);
    EXPECT_EQ(outcome_of(message(NLMSG_DONE, 0, NLM_F_MULTI | NLM_F_DUMP_INTR)).end, EINTR);
}

TEST(FramesNetlink, rest_of_another_answer_is_passed_over) {
    const ByteVec run = run_of({message(kNotice, 1, 0, kOurs - 1), message(NLMSG_DONE, -EPERM, 0, kOurs - 1),
                                message(kNotice, 2), message(NLMSG_DONE, 0)});
    const Outcome outcome = outcome_of(run);
    EXPECT_EQ(outcome.taken, (std::vector{2}));
    EXPECT_EQ(outcome.end, 0);
    EXPECT_EQ(outcome_of(run, 0).taken, (std::vector{1})); // of notices none is
}

TEST(FramesNetlink, cut_run_is_broken_wherever_it_is_cut) {
    const ByteVec whole = run_of({message(kNotice, 1), message(kNotice, 2)});
    for (size_t size = 1; size < whole.size(); ++size) {
        const Outcome outcome = outcome_of({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)});
        EXPECT_EQ(outcome.taken.size(), size / (whole.size() / 2)) << size;
        EXPECT_EQ(outcome.end, size == whole.size() / 2 ? std::nullopt : std::optional(EBADMSG)) << size;
    }
}

TEST(FramesNetlink, answer_without_its_number_is_broken) {
    ByteVec cut = message(NLMSG_ERROR, 0);
    cut.resize(sizeof(nlmsghdr));
    cut[0] = sizeof(nlmsghdr);
    EXPECT_EQ(outcome_of(cut).end, EBADMSG);
}

TEST(FramesNetlink, cut_notice_is_no_link) {
    Links links;
    take_link({RTM_NEWLINK, {}}, links);
    take_link({RTM_NEWLINK, frames::Bytes(message(0, 0)).first(4)}, links);
    EXPECT_TRUE(links.empty());
}

// This kernel, whichever it is, has a loopback.
TEST(FramesNetlink, kernel_answers_requests_by_their_number) {
    Channel kernel;
    Links links;
    EXPECT_EQ(kernel.ask(set_enabled(0x7ffffff0, true)), ENODEV);
    EXPECT_EQ(kernel.dump(list_links(), [&](const Notice &notice) { take_link(notice, links); }), 0);
    const auto *loopback = find_link(links, "lo");
    ASSERT_NE(loopback, nullptr);
    EXPECT_EQ(loopback->first, if_nametoindex("lo"));
    EXPECT_EQ(kernel.dump(Request(RTM_MAX + 1, NLM_F_DUMP, ifinfomsg{}), [](const Notice &) { FAIL(); }), EOPNOTSUPP);
    EXPECT_EQ(kernel.ask(set_enabled(0x7ffffff0, true)), ENODEV);
}

TEST(FramesNetlink, nothing_is_lost_where_nothing_has_come) {
    constexpr unsigned kGroups[] = {RTNLGRP_LINK};
    Channel monitor(kGroups);
    monitor.drain([](const Notice &) {}); // the machine's own
    EXPECT_TRUE(monitor.drain([](const Notice &) {}));
}

} // namespace
