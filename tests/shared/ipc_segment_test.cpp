// Shared-memory segments and their header.
#include "base/vsd.h"
#include "tests/support/children.h"
#include "tests/support/test.h"

#include <bridge/ipc.h>

#include <cstdarg>
#include <sys/shm.h>

namespace {

using test::faults::calls;
using test::faults::fail;

constexpr size_t kHeader = 76;

std::string with_errno(const std::string &text, int error) {
    return text + ":[" + std::to_string(error) + "] " + std::strerror(error) + ".\n";
}

// The line is there, with the level, module, tag and output of segment lines.
void expect_shm_line(const std::string &text) {
    const test::LogLine line = test::log_line(text);
    EXPECT_EQ(line.category(), test::kShmLine) << text << "among:\n" << test::log_text();
}

[[gnu::format(printf, 1, 2)]] std::string text_of(const char *format, ...) {
    char text[512];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

class IpcSegment : public test::Env {
  protected:
    IpcSegment() { test::debug_on({BRI_DBG_VLAN}); }
    ~IpcSegment() override {
        test::faults::clear();
        for (bri_shm_handle *handle : handles_)
            bridge_shm_dettach(handle);
        if (peer_ != nullptr)
            shmdt(peer_);
    }

    // The fixture detaches what these give.
    bri_shm_handle *create(const char *name = "TABLE", size_t size = 100) {
        return keep(bridge_shm_create(name, key_, size));
    }
    bri_shm_handle *attach() { return keep(bridge_shm_attach(key_)); }
    bri_shm_handle *attach_rdonly() { return keep(bridge_shm_attach_rdonly(key_)); }
    bri_shm_handle *keep(bri_shm_handle *handle) {
        handles_.push_back(handle);
        return handle;
    }
    void forget(const bri_shm_handle *handle) { std::erase(handles_, handle); }

    // The segment as another process sees it, by a mapping of its own.
    uint8_t *peer(size_t size = 0, int flags = 0) {
        if (peer_ == nullptr)
            peer_ = static_cast<uint8_t *>(shmat(shmget(key_, size, flags), nullptr, 0));
        return peer_;
    }
    [[nodiscard]] int id() const { return shmget(key_, 0, 0); }
    [[nodiscard]] shmid_ds status() const {
        shmid_ds status{};
        EXPECT_EQ(shmctl(id(), IPC_STAT, &status), 0);
        return status;
    }

    const int32_t key_ = bri::ipc_key(0x33330001);

  private:
    std::vector<bri_shm_handle *> handles_;
    uint8_t *peer_ = nullptr;
};

TEST_F(IpcSegment, create_makes_a_zeroed_segment_behind_a_header) {
    const bri_shm_handle *handle = create("TABLE", 100);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(status().shm_segsz, kHeader + 100);
    EXPECT_EQ(status().shm_perm.mode & 0777, 0777);
    EXPECT_EQ(handle->data, reinterpret_cast<uint8_t *>(handle->hdr) + kHeader);
    for (size_t offset = kHeader; offset < kHeader + 100; ++offset)
        ASSERT_EQ(peer()[offset], 0) << offset;
}

TEST_F(IpcSegment, the_header_tells_key_id_name_and_size) {
    create("TABLE", 100);
    EXPECT_EQ(test::value_at<int32_t>(peer(), 0), key_);
    EXPECT_EQ(test::value_at<int32_t>(peer(), 4), id());
    char name[64] = "TABLE";
    EXPECT_EQ(std::memcmp(peer() + 8, name, sizeof name), 0);
    EXPECT_EQ(test::value_at<uint32_t>(peer(), 72), 100U);
}

TEST_F(IpcSegment, create_logs_what_it_does) {
    create("TABLE", 100);
    ASSERT_EQ(test::log_lines().size(), 3U);
    EXPECT_EQ(test::log_lines()[0].text,
              text_of("Creating SHM [name:TABLE, key:%x, size:100] ...\n", static_cast<uint32_t>(key_)));
    EXPECT_EQ(test::log_lines()[1].text, text_of("Get shm-id %d.\n", id()));
    EXPECT_EQ(test::log_lines()[2].text,
              text_of("Create shm SUCC:[name:TABLE, key:%x, shmid:%d, size:100].", static_cast<uint32_t>(key_), id()));
    for (const test::LogLine &line : std::vector(test::log_lines()))
        expect_shm_line(line.text);
}

TEST_F(IpcSegment, a_second_create_keeps_the_data_and_rewrites_the_header) {
    create("A-LONGER-NAME", 100);
    peer()[kHeader] = 7;
    peer()[kHeader + 99] = 9;
    std::memset(peer(), 0xEE, kHeader);
    ASSERT_NE(create("TABLE", 50), nullptr);
    EXPECT_EQ(test::value_at<int32_t>(peer(), 0), key_);
    EXPECT_EQ(test::value_at<int32_t>(peer(), 4), id());
    char name[64] = "TABLE";
    EXPECT_EQ(std::memcmp(peer() + 8, name, sizeof name), 0);
    EXPECT_EQ(test::value_at<uint32_t>(peer(), 72), 50U); // as this creator asked
    EXPECT_EQ(peer()[kHeader], 7);
    EXPECT_EQ(peer()[kHeader + 99], 9);
}

TEST_F(IpcSegment, create_of_more_than_the_segment_has_fails) {
    create("TABLE", 100);
    EXPECT_EQ(create("TABLE", 101), nullptr);
    expect_shm_line(with_errno("Get shm failed", EINVAL));
    EXPECT_EQ(test::value_at<uint32_t>(peer(), 72), 100U);
}

TEST_F(IpcSegment, sizes_that_the_header_cannot_tell_are_refused) {
    EXPECT_EQ(create("TABLE", SIZE_MAX), nullptr); // header and data would wrap to a segment that is too small
    EXPECT_EQ(create("TABLE", UINT32_MAX - kHeader + 1), nullptr);
    EXPECT_EQ(calls("shmget"), 0);
    EXPECT_EQ(test::times_logged(with_errno("Get shm failed", EINVAL)), 2);
    expect_shm_line(with_errno("Get shm failed", EINVAL));
    fail("shmget", 1, ENOSPC); // the largest that it can tell is asked of the system
    EXPECT_EQ(create("TABLE", UINT32_MAX - kHeader), nullptr);
    EXPECT_EQ(calls("shmget"), 1);
}

TEST_F(IpcSegment, a_segment_may_have_no_data) {
    ASSERT_NE(create("TABLE", 0), nullptr);
    EXPECT_EQ(status().shm_segsz, kHeader);
    EXPECT_NE(attach(), nullptr);
}

// Ids count from 0, which is as good as any other.
TEST_F(IpcSegment, the_first_segment_of_a_machine_is_made_and_attached) {
    const int status = test::wait_for(test::start_child_alone([&] {
        const bri_shm_handle *handle = create();
        return handle != nullptr && id() == 0 && attach() != nullptr && attach_rdonly() != nullptr ? 0 : 1;
    }));
    if (status == test::kNoNamespace << 8)
        GTEST_SKIP() << "needs a namespace of its own";
    EXPECT_EQ(status, 0);
}

TEST_F(IpcSegment, a_null_name_is_refused) {
    EXPECT_EQ(create(nullptr), nullptr);
    ASSERT_EQ(test::log_lines().size(), 1U);
    expect_shm_line("Create shm, invalid param.\n");
    EXPECT_EQ(calls("shmget"), 0);
}

TEST_F(IpcSegment, a_long_name_is_cut_to_63_characters) {
    for (const size_t length : {62U, 63U, 64U, 65U, 200U}) {
        create(std::string(length, 'x').c_str());
        EXPECT_EQ(std::string(reinterpret_cast<char *>(peer() + 8)), std::string(std::min<size_t>(length, 63), 'x'));
        EXPECT_EQ(test::value_at<uint32_t>(peer(), 72), 100U);
    }
}

TEST_F(IpcSegment, create_fails_when_no_segment_can_be_made) {
    fail("shmget", 1, ENOSPC);
    EXPECT_EQ(create(), nullptr);
    expect_shm_line(with_errno("Get shm failed", ENOSPC));
    EXPECT_EQ(calls("shmat"), 0);
}

TEST_F(IpcSegment, a_failed_attach_of_the_memory_fails_all_three) {
    create();
    for (bri_shm_handle *(*open)(int32_t) : {+[](int32_t key) { return bridge_shm_create("TABLE", key, 100); },
                                             &bridge_shm_attach, &bridge_shm_attach_rdonly}) {
        test::clear_log();
        fail("shmat", 1, EMFILE);
        EXPECT_EQ(keep(open(key_)), nullptr);
        expect_shm_line(with_errno("Create shm failed", EMFILE));
    }
}

TEST_F(IpcSegment, a_segment_that_tells_no_status_is_not_attached) {
    create();
    fail("shmctl", 1, EACCES);
    EXPECT_EQ(attach(), nullptr);
    expect_shm_line(with_errno("Create shm failed", EACCES));
}

TEST_F(IpcSegment, without_memory_for_the_handle_create_fails_and_the_segment_stays_attached) {
    fail("malloc", 1, ENOMEM);
    EXPECT_EQ(create(), nullptr);
    expect_shm_line(with_errno("Get shm, malloc failed", ENOMEM));
    EXPECT_EQ(status().shm_nattch, 1U);
}

TEST_F(IpcSegment, without_memory_for_the_handle_both_attach_calls_fail) {
    create();
    fail("malloc", 1, ENOMEM);
    EXPECT_EQ(attach(), nullptr);
    expect_shm_line(with_errno("Attach shm, malloc failed", ENOMEM));
    fail("malloc", 1, ENOMEM);
    EXPECT_EQ(attach_rdonly(), nullptr);
    expect_shm_line(with_errno("Attach[RL] shm, malloc failed", ENOMEM));
}

TEST_F(IpcSegment, attach_finds_the_segment_and_notes_its_id) {
    create("TABLE", 100);
    test::put_at<uint32_t>(peer(), 4, 0);
    test::clear_log();
    const bri_shm_handle *handle = attach();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(test::value_at<int32_t>(peer(), 4), id());
    EXPECT_EQ(handle->data, reinterpret_cast<uint8_t *>(handle->hdr) + kHeader);
    *static_cast<uint8_t *>(handle->data) = 5;
    EXPECT_EQ(peer()[kHeader], 5);
    ASSERT_EQ(test::log_lines().size(), 2U);
    expect_shm_line(text_of("Get shm-id %d.\n", id()));
    expect_shm_line(text_of("Attach shm SUCC:[name:TABLE, key:%d, size:100].", key_));
}

TEST_F(IpcSegment, attach_rdonly_leaves_the_header_alone) {
    create("TABLE", 100);
    test::put_at<uint32_t>(peer(), 4, 77);
    test::clear_log();
    const bri_shm_handle *handle = attach_rdonly();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(test::value_at<uint32_t>(peer(), 4), 77U);
    ASSERT_EQ(test::log_lines().size(), 2U);
    expect_shm_line(text_of("Get shm-id %d.\n", id()));
    expect_shm_line(text_of("Attach[RL] shm SUCC:[name:TABLE, key:%d, size:100].", key_));
}

TEST_F(IpcSegment, attach_rdonly_maps_for_reading_only) {
    create("TABLE", 100);
    peer()[kHeader] = 5;
    const bri_shm_handle *handle = attach_rdonly();
    volatile auto *data = static_cast<uint8_t *>(handle->data);
    EXPECT_EQ(data[0], 5);
    const int status = test::wait_for(test::start_child([&] {
        signal(SIGSEGV, SIG_DFL);
        data[0] = 6;
        return 0;
    }));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
    EXPECT_EQ(peer()[kHeader], 5);
}

TEST_F(IpcSegment, attaching_a_missing_segment_fails) {
    EXPECT_EQ(attach(), nullptr);
    EXPECT_EQ(attach_rdonly(), nullptr);
    EXPECT_EQ(test::log_lines().size(), 2U);
    EXPECT_EQ(test::times_logged(with_errno("Get shm failed", ENOENT)), 2);
}

TEST_F(IpcSegment, a_segment_too_small_for_the_header_is_not_attached) {
    peer(kHeader - 1, IPC_CREAT | 0777);
    EXPECT_EQ(attach(), nullptr);
    EXPECT_EQ(attach_rdonly(), nullptr);
    EXPECT_EQ(test::times_logged(with_errno("Create shm failed", EINVAL)), 2);
    EXPECT_EQ(status().shm_nattch, 1U); // the peer alone
    EXPECT_EQ(test::value_at<uint32_t>(peer(), 4), 0U);
}

TEST_F(IpcSegment, dettach_unmaps_and_keeps_the_segment) {
    const int blocks = test::faults::live_blocks();
    bri_shm_handle *handle = bridge_shm_create("TABLE", key_, 100);
    test::clear_log();
    bridge_shm_dettach(handle);
    EXPECT_EQ(test::faults::live_blocks(), blocks);
    EXPECT_EQ(status().shm_nattch, 0U);
    ASSERT_EQ(test::log_lines().size(), 1U);
    expect_shm_line(text_of("Dettached shm SUCC:[name:TABLE, key:%d].", key_));
}

TEST_F(IpcSegment, dettach_without_a_mapping_frees_the_handle_silently) {
    bridge_shm_dettach(nullptr);
    const int blocks = test::faults::live_blocks();
    bridge_shm_dettach(static_cast<bri_shm_handle *>(std::calloc(1, sizeof(bri_shm_handle))));
    EXPECT_EQ(test::faults::live_blocks(), blocks);
    EXPECT_EQ(calls("shmdt"), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcSegment, destroy_unmaps_and_removes_the_segment) {
    bri_shm_handle *handle = create();
    const int destroyed = id();
    test::clear_log();
    bridge_shm_destroy(handle->hdr);
    handle->hdr = nullptr; // the handle stays the caller's
    EXPECT_EQ(id(), -1);
    shmid_ds status{};
    EXPECT_EQ(shmctl(destroyed, IPC_STAT, &status), -1); // gone at once, so no mapping was left
    ASSERT_EQ(test::log_lines().size(), 1U);
    expect_shm_line(text_of("Destroy shm SUCC:[name:TABLE, key:%d].", key_));
}

TEST_F(IpcSegment, destroy_of_nothing_does_nothing) {
    bridge_shm_destroy(nullptr);
    EXPECT_EQ(calls("shmdt") + calls("shmctl"), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcSegment, show_prints_the_descriptor_whatever_the_flags_say) {
    const bri_shm_handle *handle = create("TABLE", 100);
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    test::clear_log();
    bridge_shm_show(handle);
    EXPECT_EQ(test::log_text(),
              text_of("shm-name:   TABLE\nshm-id:     %d\nshm-key:    0x%x\nshm-size:   100\nshm-addr:   %p\n", id(),
                      static_cast<uint32_t>(key_), handle->data));
    ASSERT_EQ(test::log_lines().size(), 5U);
    for (const test::LogLine &line : test::log_lines()) {
        EXPECT_EQ(line.category(), test::kShownLine);
    }
}

TEST_F(IpcSegment, show_of_nothing_prints_nothing) {
    const bri_shm_handle empty{};
    bridge_shm_show(nullptr);
    bridge_shm_show(&empty);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcSegment, a_name_without_an_end_is_printed_with_its_bound) {
    bri_shm_handle *handle = create("TABLE", 100);
    std::memset(peer() + 8, 'N', 64);
    test::put_at<uint32_t>(peer(), 72, 0x4E4E4E4E);
    test::clear_log();
    const std::string name(63, 'N');
    bridge_shm_show(handle);
    attach();
    forget(handle);
    bridge_shm_dettach(handle);
    EXPECT_TRUE(test::logged("shm-name:   " + name + "\n"));
    EXPECT_TRUE(test::logged("shm-size:   1313754702\n"));
    expect_shm_line(text_of("Attach shm SUCC:[name:%s, key:%d, size:1313754702].", name.c_str(), key_));
    expect_shm_line(text_of("Dettached shm SUCC:[name:%s, key:%d].", name.c_str(), key_));
}

TEST_F(IpcSegment, nothing_is_logged_while_the_flag_is_off) {
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    bridge_shm_dettach(bridge_shm_create("TABLE", key_, 100));
    create(nullptr);
    fail("shmget", 1, ENOSPC);
    create();
    fail("shmat", 1, EMFILE);
    attach();
    fail("malloc", 1, ENOMEM);
    attach_rdonly();
    EXPECT_EQ(test::faults::injected(), 3);
    EXPECT_TRUE(test::log_lines().empty());
}

} // namespace
