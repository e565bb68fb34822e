/* A test of the kit: a condition that does not hold is printed, and the program ends with status 1. */
#ifndef TESTS_KIT_CHECK_H
#define TESTS_KIT_CHECK_H

#include <stdio.h>
#include <stdlib.h>

#define CHECK(condition)                                                                                               \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: %s: not so: %s\n", __FILE__, __LINE__, __func__, #condition);                      \
            exit(EXIT_FAILURE);                                                                                        \
        }                                                                                                              \
    } while (0)

#endif
