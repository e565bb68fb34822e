// The kernel's own semaphores: the library tells by the time of the last operation whether their creator has set them.
#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/sem.h>

// The call itself, as the double of the tests puts right what an emulator gets wrong.
extern "C" int __real_semctl(int id, int number, int command, ...);

namespace {

union Argument {
    int value;
    semid_ds *status;
};

time_t last_operation(int id) {
    semid_ds status{};
    Argument argument{};
    argument.status = &status;
    EXPECT_EQ(__real_semctl(id, 0, IPC_STAT, argument), 0);
    return status.sem_otime;
}

TEST(Semaphore, time_of_the_last_operation_is_zero_until_there_is_one) {
    const int id = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    const time_t before = time(nullptr);
    EXPECT_EQ(last_operation(id), 0);
    sembuf up{0, 1, 0};
    EXPECT_EQ(semop(id, &up, 1), 0);
    EXPECT_GE(last_operation(id), before);
    EXPECT_LE(last_operation(id), time(nullptr));
    EXPECT_EQ(__real_semctl(id, 0, IPC_RMID, Argument{}), 0);
}

} // namespace
