/* Syslog library: one log line. */
#ifndef QV_SYSLOG_H
#define QV_SYSLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Write a line of the given level (0..7 as in syslog), module and tag. `output` 1 marks an ordinary log line, 2 a line
 * that a person asked to see. Any thread. */
__attribute__((visibility("default"), format(printf, 5, 6))) void
printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif
