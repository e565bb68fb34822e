/* The sizes of all public records. A host process and the library are built at different times: a size that changes
 * breaks the hosts that were built before. The rows are in records.def. */
#include <bridge/bridge.h>

#include <stdio.h>

#define RECORD(name, size64, size32) {#name, sizeof(struct name), size64, size32},
static const struct row {
    const char *name;
    size_t size;
    size_t size64;
    size_t size32;
} rows[] = {
#include "records.def"
};

int main(int argc, char **argv) {
    (void)argv;
    int failures = 0;
    for (size_t at = 0; at < sizeof rows / sizeof rows[0]; ++at) {
        const struct row *row = &rows[at];
        const size_t agreed = sizeof(void *) == 8 ? row->size64 : row->size32;
        if (argc > 1) /* for whoever adds a record */
            printf("%s %zu\n", row->name, row->size);
        if (row->size != agreed) {
            printf("struct %s has %zu bytes instead of %zu\n", row->name, row->size, agreed);
            ++failures;
        }
    }
    printf("%zu records, %d of a changed size\n", sizeof rows / sizeof rows[0], failures);
    return failures == 0 ? 0 : 1;
}
