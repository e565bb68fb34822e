#include "environment.h"

#include <glob.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define PRELOAD "libef_bridge_sim.so"

static bool has_name(const char *variable, const char *assignment) {
    const size_t length = strcspn(assignment, "=") + 1;
    return strncmp(variable, assignment, length) == 0;
}

/* Replaces or adds a variable; takes over the assignment, which may be null for want of memory. */
static bool put_variable(char ***environment, char *assignment) {
    size_t count = 0;
    if (assignment == NULL)
        return false;
    for (; (*environment)[count] != NULL; ++count)
        if (has_name((*environment)[count], assignment)) {
            free((*environment)[count]);
            (*environment)[count] = assignment;
            return true;
        }
    char **longer = realloc(*environment, (count + 2) * sizeof *longer);
    if (longer == NULL) {
        free(assignment);
        return false;
    }
    longer[count] = assignment;
    longer[count + 1] = NULL;
    *environment = longer;
    return true;
}

bool environment_set(char ***environment, const char *name, const char *value) {
    char *assignment = NULL;
    return asprintf(&assignment, "%s=%s", name, value) >= 0 && put_variable(environment, assignment);
}

char **environment_copy(void) {
    char **copy = calloc(1, sizeof *copy);
    for (char **variable = environ; copy != NULL && *variable != NULL; ++variable)
        if (!put_variable(&copy, strdup(*variable))) {
            environment_free(copy);
            return NULL;
        }
    return copy;
}

void environment_free(char **environment) {
    for (char **variable = environment; variable != NULL && *variable != NULL; ++variable)
        free(*variable);
    free(environment);
}

/* Whether the program is there; its real path then, since its preload is found from it. */
static bool resolve(const char *path, char *real) {
    return access(path, X_OK) == 0 && realpath(path, real) != NULL;
}

bool find_sandbox(const char *given, char *path) {
    const char *named = getenv("BRIDGE_SANDBOX");
    const char *place = getenv("PATH");
    char candidate[PATH_MAX];
    if (given == NULL)
        given = named != NULL && *named != '\0' ? named : "bridge-sandbox";
    if (strchr(given, '/') != NULL)
        place = NULL;
    bool found = place == NULL && resolve(given, path);
    for (size_t length; !found && place != NULL && *place != '\0'; place += length + (place[length] == ':')) {
        length = strcspn(place, ":");
        snprintf(candidate, sizeof candidate, "%.*s/%s", (int)length, place, given);
        found = resolve(candidate, path);
    }
    if (!found)
        fprintf(stderr, "testkit: no program %s\n", given);
    return found;
}

/* Daemons reach the kernel's bridge module by a preloaded library. By its name alone, since a path with a blank would
 * be taken for two. */
bool environment_set_preload(char ***environment, const char *sandbox) {
    static const char *const places[] = {"", "/../lib*", "/../lib/*"};
    const char *before = getenv("LD_LIBRARY_PATH");
    char path[2 * PATH_MAX];
    const int directory = (int)(strrchr(sandbox, '/') - sandbox);
    glob_t found = {0};
    for (size_t i = 0; i < sizeof places / sizeof *places && found.gl_pathc == 0; ++i) {
        globfree(&found);
        snprintf(path, sizeof path, "%.*s%s/" PRELOAD, directory, sandbox, places[i]);
        glob(path, 0, NULL, &found);
    }
    bool set = false;
    if (found.gl_pathc > 0) {
        snprintf(path, sizeof path, "%.*s%s%s", (int)(strrchr(found.gl_pathv[0], '/') - found.gl_pathv[0]),
                 found.gl_pathv[0], before != NULL ? ":" : "", before != NULL ? before : "");
        set = environment_set(environment, "LD_LIBRARY_PATH", path) &&
              environment_set(environment, "LD_PRELOAD", PRELOAD);
    } else
        fprintf(stderr, "testkit: no " PRELOAD " beside %s\n", sandbox);
    globfree(&found);
    return set;
}
