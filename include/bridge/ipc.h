/* IPC primitives: System V semaphore locks and segments, POSIX named semaphores.
 *
 * None of these keeps a state of its own, or sends; each may be called from any thread. Failures are also told by a log
 * line while debug flag BRI_DBG_VLAN is set.
 *
 * @code
 * // The bytes that somebody has put into the segment of a key; 0 without one.
 * uint32_t table_size(int32_t key) {
 *     struct bri_shm_handle *table = bridge_shm_attach_rdonly(key);
 *     const uint32_t size = table == NULL ? 0 : table->hdr->size;
 *     bridge_shm_dettach(table);
 *     return size;
 * }
 * @endcode
 */
#ifndef BRIDGE_IPC_H
#define BRIDGE_IPC_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Handle of a one-semaphore System V set: value 1 free, 0 held. From the heap, owned by the caller. */
struct bri_sem_lock {
    int32_t semid;    /* 0: semaphore-set id */
    int32_t reserved; /* 4: zero */
};
BRI_SIZE(bri_sem_lock, 8);
BRI_AT(bri_sem_lock, semid, 0);
BRI_AT(bri_sem_lock, reserved, 4);

/* Header that starts every segment; the table's own data follows it. */
struct bri_shm_hdr {
    uint32_t key;   /*  0: IPC key the segment was created with */
    uint32_t shmid; /*  4: segment id, rewritten by every process that attaches */
    char name[64];  /*  8: segment name, NUL-terminated */
    uint32_t size;  /* 72: bytes of the data area, as asked by the creator */
};
BRI_SIZE(bri_shm_hdr, 76);
BRI_AT(bri_shm_hdr, key, 0);
BRI_AT(bri_shm_hdr, shmid, 4);
BRI_AT(bri_shm_hdr, name, 8);
BRI_AT(bri_shm_hdr, size, 72);

/* Handle of an attached segment. From the heap, owned by the caller, freed by bridge_shm_dettach. */
struct bri_shm_handle {
    struct bri_shm_hdr *hdr; /* the attached segment */
    void *data;              /* its data area, behind the header */
};

/* --- System V semaphore locks --- */

/* Makes the one-semaphore set of `key`, free, or joins the one that is there. A set that was used before is set free,
 * which lets a process in that comes up again after a crash; it also takes the lock from a holder of that moment, so a
 * lock alone does not guard against processes that join. Gives a handle that the caller keeps or frees with free(), or
 * null when memory or the set cannot be had. */
BRI_API struct bri_sem_lock *bridge_lock_create(int32_t key);

/* Joins an existing set and leaves its value alone. Gives a handle as bridge_lock_create does, or null when there is no
 * set of that key. */
BRI_API struct bri_sem_lock *bridge_lock_get(int32_t key);

/* Takes the lock, waiting while any process holds it: readers and writers exclude each other alike, and the two names
 * only mark the intent. The kernel gives the lock back when its holder dies; nothing else bounds the wait, and a holder
 * that is merely stopped holds everybody up. When taking fails, also by a signal, a log line says so and the caller
 * goes on unguarded: its bridge_unlock then frees the lock of whoever really holds it. Null does nothing. */
BRI_API void bridge_rd_lock(struct bri_sem_lock *lock);

/* The same as bridge_rd_lock. */
BRI_API void bridge_wr_lock(struct bri_sem_lock *lock);

/* Gives the lock back: raises the semaphore, whoever took it. Null does nothing. */
BRI_API void bridge_unlock(struct bri_sem_lock *lock);

/* --- POSIX named semaphores ---
 *
 * Known by their name alone; a null name gives the failure result. The calls that read, post and wait leave the
 * semaphore open: the first one maps it into the process for good, and further calls on that name cost neither memory
 * nor a descriptor. */

/* Makes the POSIX semaphore `name` with value 1, or keeps the value of the one that is there. 1 on success, else 0. */
BRI_API int bridge_plock_creat(const char *name);

/* Opens the semaphore and closes it again; it is not unlinked. The result of the close (0, or -1), and 0 when there is
 * no such semaphore. */
BRI_API int bridge_close_plock(const char *name);

/* Reads the semaphore's value. 1 when it stands in *value, else 0 (also for a null `value`). */
BRI_API int bridge_get_plock_value(const char *name, int *value);

/* Adds 1 to the semaphore. 0, or -1 when it cannot be opened or posted. */
BRI_API int bridge_psem_up(const char *name);

/* Takes 1 off the semaphore, waiting while it is 0. A wait that a signal interrupts is tried once more. Nothing bounds
 * the wait: unlike the System V lock, the semaphore of a holder that was killed stays at 0. 0, or -1 when the semaphore
 * cannot be opened or the wait failed. */
BRI_API int bridge_psem_down(const char *name);

/* --- Shared-memory segments --- */

/* Makes the segment of `key` with room for `size` bytes of data behind its header, zeroed, or joins one that is at
 * least as large and keeps its data. The header is written anew in either case; at most 63 characters of `name` are
 * kept. Gives a handle, or null for a null name, a size that makes 4 GiB or more together with the header, a smaller
 * segment of that key, or when memory, the segment or its mapping cannot be had. Without memory for the handle the
 * segment stays attached. */
BRI_API struct bri_shm_handle *bridge_shm_create(const char *name, int32_t key, size_t size);

/* Attaches an existing segment for reading and writing and notes its id in the header. Gives a handle, or null when
 * there is no such segment, it has fewer bytes than the 76 of the header, or it cannot be mapped. */
BRI_API struct bri_shm_handle *bridge_shm_attach(int32_t key);

/* Attaches an existing segment for reading only: as bridge_shm_attach, but nothing is written, not the id in the header
 * either, and a write through the handle ends the process. */
BRI_API struct bri_shm_handle *bridge_shm_attach_rdonly(int32_t key);

/* Unmaps the segment, which stays, and frees the handle. Where its hdr is null it only frees. Null does nothing. */
BRI_API void bridge_shm_dettach(struct bri_shm_handle *handle);

/* Unmaps the segment at `hdr` (a handle's hdr, not the handle) and marks it for removal: it is gone when the last
 * process has detached. The handle stays the caller's; set its hdr to null before bridge_shm_dettach. Null does
 * nothing. */
BRI_API void bridge_shm_destroy(struct bri_shm_hdr *hdr);

/* Prints name, id, key, size and data address of a segment, five lines, ungated by debug flags. Nothing for null. */
BRI_API void bridge_shm_show(const struct bri_shm_handle *handle);

BRI_END_DECLS

#endif
