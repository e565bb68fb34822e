/* IPC primitives: System V semaphore locks and segments, POSIX named semaphores. */
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

BRI_API struct bri_sem_lock *bridge_lock_create(int32_t key);

BRI_API struct bri_sem_lock *bridge_lock_get(int32_t key);

BRI_API void bridge_rd_lock(struct bri_sem_lock *lock);

BRI_API void bridge_wr_lock(struct bri_sem_lock *lock);

BRI_API void bridge_unlock(struct bri_sem_lock *lock);

BRI_API int bridge_plock_creat(const char *name);

BRI_API int bridge_close_plock(const char *name);

BRI_API int bridge_get_plock_value(const char *name, int *value);

BRI_API int bridge_psem_up(const char *name);

BRI_API int bridge_psem_down(const char *name);

BRI_API struct bri_shm_handle *bridge_shm_create(const char *name, int32_t key, size_t size);

BRI_API struct bri_shm_handle *bridge_shm_attach(int32_t key);

BRI_API struct bri_shm_handle *bridge_shm_attach_rdonly(int32_t key);

BRI_API void bridge_shm_dettach(struct bri_shm_handle *handle);

BRI_API void bridge_shm_destroy(struct bri_shm_hdr *hdr);

BRI_API void bridge_shm_show(const struct bri_shm_handle *handle);

BRI_END_DECLS

#endif
