// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

struct bri_sem_lock *bridge_lock_create(int32_t ) { return nullptr; }
struct bri_sem_lock *bridge_lock_get(int32_t ) { return nullptr; }
void bridge_rd_lock(struct bri_sem_lock *) {}
void bridge_wr_lock(struct bri_sem_lock *) {}
void bridge_unlock(struct bri_sem_lock *) {}
int bridge_plock_creat(const char *) { return 0; }
int bridge_close_plock(const char *) { return 0; }
int bridge_get_plock_value(const char *, int *) { return 0; }
int bridge_psem_up(const char *) { return 0; }
int bridge_psem_down(const char *) { return 0; }
struct bri_shm_handle *bridge_shm_create(const char *, int32_t , size_t ) { return nullptr; }
struct bri_shm_handle *bridge_shm_attach(int32_t ) { return nullptr; }
struct bri_shm_handle *bridge_shm_attach_rdonly(int32_t ) { return nullptr; }
void bridge_shm_dettach(struct bri_shm_handle *) {}
void bridge_shm_destroy(struct bri_shm_hdr *) {}
void bridge_shm_show(const struct bri_shm_handle *) {}
