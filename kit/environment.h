/* The environment of a world's processes, and where its programs are. */
#ifndef KIT_ENVIRONMENT_H
#define KIT_ENVIRONMENT_H

#include <stdbool.h>

/* Of this process; ends with a null. Null without memory. */
char **environment_copy(void);
void environment_free(char **environment);

/* False without memory. */
bool environment_set(char ***environment, const char *name, const char *value);

/* The real path of the program, PATH_MAX bytes: the given one, or $BRIDGE_SANDBOX, or the one of PATH. False with a
 * line on standard error. */
bool find_sandbox(const char *given, char *path);

/* Lets daemons reach the kernel's bridge module, by the library that lies beside the program or in the library
 * directory of its tree. False with a line on standard error. */
bool environment_set_preload(char ***environment, const char *sandbox);

#endif
