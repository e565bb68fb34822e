#include "json.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

/* Every function takes and gives places in a text that ends with a NUL, at which each of them stops. */

static const char *skip_blanks(const char *at) {
    return at + strspn(at, " \t\r\n");
}

/* Behind a string that begins here. */
static const char *skip_string(const char *at) {
    for (++at; *at != '\0' && *at != '"'; ++at)
        if (*at == '\\' && at[1] != '\0')
            ++at;
    return *at == '"' ? at + 1 : at;
}

/* Behind a value that begins here. Brackets are only counted: the server closes what it opens. */
static const char *skip_value(const char *at) {
    long depth = 0;
    while (*at != '\0') {
        if (*at == '"') {
            at = skip_string(at);
            if (depth == 0)
                return at;
            continue;
        }
        if (depth == 0 && strchr(",]} \t\r\n", *at) != NULL)
            return at;
        if (*at == '{' || *at == '[')
            ++depth;
        else if ((*at == '}' || *at == ']') && --depth == 0)
            return at + 1;
        ++at;
    }
    return at;
}

/* The value behind this one in its array or object, or null at the end. */
static const char *next_value(const char *at) {
    at = skip_blanks(skip_value(at));
    return *at == ',' ? skip_blanks(at + 1) : NULL;
}

static const char *find_member(const char *object, const char *name, size_t length) {
    const char *key = skip_blanks(object + 1);
    while (key != NULL && *key == '"') {
        const char *end = skip_string(key);
        const char *value = skip_blanks(end);
        if (*value != ':')
            return NULL;
        value = skip_blanks(value + 1);
        if ((size_t)(end - key) == length + 2 && memcmp(key + 1, name, length) == 0)
            return value;
        key = next_value(value);
    }
    return NULL;
}

static const char *find_element(const char *array, const char *number) {
    const char *value = skip_blanks(array + 1);
    if (*value == ']')
        return NULL;
    for (unsigned long left = strtoul(number, NULL, 10); value != NULL && left > 0; --left)
        value = next_value(value);
    return value;
}

const char *json_find(const char *json, const char *path) {
    const char *value = skip_blanks(json);
    while (value != NULL && *path != '\0') {
        const size_t length = strcspn(path, ".");
        if (*value == '{')
            value = find_member(value, path, length);
        else if (*value == '[' && length > 0 && strspn(path, "0123456789") == length)
            value = find_element(value, path);
        else
            return NULL;
        path += length + (path[length] == '.');
    }
    return value;
}

long json_count(const char *value) {
    if (value == NULL || *value != '[')
        return -1;
    long count = 0;
    const char *element = skip_blanks(value + 1);
    if (*element == ']')
        return 0;
    for (; element != NULL; element = next_value(element))
        ++count;
    return count;
}

/* Four hexadecimal digits; what is no digit ends them. */
static uint32_t hex_digits(const char *at) {
    char digits[5] = {0};
    for (int i = 0; i < 4 && at[i] != '\0' && at[i] != '"'; ++i)
        digits[i] = at[i];
    return (uint32_t)strtoul(digits, NULL, 16);
}

/* One character of the text as UTF-8, surrogates one by one; how many bytes that is. */
static size_t put_utf8(uint32_t code, char bytes[3]) {
    if (code < 0x80) {
        bytes[0] = (char)code;
        return 1;
    }
    if (code < 0x800) {
        bytes[0] = (char)(0xC0 | code >> 6);
        bytes[1] = (char)(0x80 | (code & 0x3F));
        return 2;
    }
    bytes[0] = (char)(0xE0 | code >> 12);
    bytes[1] = (char)(0x80 | (code >> 6 & 0x3F));
    bytes[2] = (char)(0x80 | (code & 0x3F));
    return 3;
}

/* The character at `at` without its escape; moves behind it. */
static size_t take_character(const char **at, char bytes[3]) {
    static const char names[] = "bfnrt";
    static const char meant[] = "\b\f\n\r\t";
    const char first = *(*at)++;
    bytes[0] = first;
    if (first != '\\' || **at == '\0')
        return 1;
    const char name = *(*at)++;
    const char *known = strchr(names, name);
    bytes[0] = known != NULL ? meant[known - names] : name;
    if (name != 'u')
        return 1;
    const uint32_t code = hex_digits(*at);
    for (int i = 0; i < 4 && **at != '\0' && **at != '"'; ++i)
        ++*at;
    return put_utf8(code, bytes);
}

bool json_text(const char *value, char *text, size_t size) {
    const char *end = skip_value(value);
    const bool string = *value == '"';
    const char *at = string ? value + 1 : value;
    if (string && end > at && end[-1] == '"')
        --end;
    size_t length = 0;
    while (at < end) {
        char bytes[3];
        size_t count = 1;
        if (string)
            count = take_character(&at, bytes);
        else
            bytes[0] = *at++;
        if (length + count >= size)
            return false;
        memcpy(text + length, bytes, count);
        length += count;
    }
    if (size == 0)
        return false;
    text[length] = '\0';
    return true;
}
