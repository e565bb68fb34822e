/* Fields of answers by their paths. */
#include "kit/json.h"
#include "tests/kit/check.h"

#include <string.h>

static const char *text_of(const char *json, const char *path) {
    static char text[64];
    const char *value = json_find(json, path);
    return value != NULL && json_text(value, text, sizeof text) ? text : NULL;
}

static int is(const char *json, const char *path, const char *expected) {
    const char *text = text_of(json, path);
    return text != NULL && strcmp(text, expected) == 0;
}

static void fields_are_found_by_name_and_number(void) {
    static const char json[] = "{\"a\":1, \"list\":[{\"x\":\"one\"},{\"x\":\"two\",\"y\":[3,4]}], \"b\":true}\n";
    CHECK(is(json, "a", "1"));
    CHECK(is(json, "b", "true"));
    CHECK(is(json, "list.0.x", "one"));
    CHECK(is(json, "list.1.y.1", "4"));
    CHECK(is(json, "list.1.y", "[3,4]"));
}

static void what_is_not_there_is_not_found(void) {
    static const char json[] = "{\"a\":1,\"list\":[1],\"empty\":[],\"none\":{}}";
    static const char *const absent[] = {"b", "a.b", "list.1", "list.x", "empty.0", "none.a", "aa", "list.-1"};
    for (size_t i = 0; i < sizeof absent / sizeof *absent; ++i)
        CHECK(text_of(json, absent[i]) == NULL);
}

static void brackets_and_quotes_in_texts_are_text(void) {
    static const char json[] = "{\"a\":\"}]\\\",{[\",\"b\":\"\\\\\",\"c\":7}";
    CHECK(is(json, "a", "}]\",{["));
    CHECK(is(json, "b", "\\"));
    CHECK(is(json, "c", "7"));
}

static void escapes_become_characters(void) {
    CHECK(is("{\"a\":\"x\\ty\\n\\u0041\\u00e9\\u20ac\\/\"}", "a", "x\ty\nA\xC3\xA9\xE2\x82\xAC/"));
}

static void elements_are_counted(void) {
    CHECK(json_count(json_find("{\"a\":[]}", "a")) == 0);
    CHECK(json_count(json_find("{\"a\":[{\"x\":[1,2]},\"],[\",3]}", "a")) == 3);
    CHECK(json_count(json_find("{\"a\":1}", "a")) == -1);
    CHECK(json_count(json_find("{\"a\":1}", "b")) == -1);
}

static void text_without_room_is_refused(void) {
    char text[4];
    CHECK(json_text("\"abc\"", text, 4));
    CHECK(!json_text("\"abcd\"", text, 4));
    CHECK(!json_text("\"\"", text, 0));
}

/* Every beginning of an answer: nothing outside of it is read (the sanitizer build watches). */
static void answer_that_is_cut_short_ends(void) {
    static const char json[] = "{\"a\":{\"b\":[\"x\\\\\\u0041\",{\"c\":-1}]},\"d\":2}";
    for (size_t length = 0; length < sizeof json; ++length) {
        char *cut = malloc(length + 1);
        CHECK(cut != NULL);
        memcpy(cut, json, length);
        cut[length] = '\0';
        text_of(cut, "a.b.0");
        text_of(cut, "a.b.1.c");
        json_count(json_find(cut, "a.b"));
        CHECK(text_of(cut, "d") == NULL || length >= sizeof json - 3); /* from the 2 on */
        free(cut);
    }
}

int main(void) {
    fields_are_found_by_name_and_number();
    what_is_not_there_is_not_found();
    brackets_and_quotes_in_texts_are_text();
    escapes_become_characters();
    elements_are_counted();
    text_without_room_is_refused();
    answer_that_is_cut_short_ends();
    return EXIT_SUCCESS;
}
