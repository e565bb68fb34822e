/* Reading one field of a JSON text that a server wrote. */
#ifndef KIT_JSON_H
#define KIT_JSON_H

#include <stdbool.h>
#include <stddef.h>

/* Where the value begins that the path names, "addresses.0.mac"; null when there is none. The empty path is the whole.
 */
const char *json_find(const char *json, const char *path);

/* The value as text: a string without quotes and escapes, anything else as it stands. False when there is no room. */
bool json_text(const char *value, char *text, size_t size);

/* The elements of the array, or -1 when the value is none. */
long json_count(const char *value);

#endif
