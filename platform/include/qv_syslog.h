/* Syslog library: one log line. */
#ifndef QV_SYSLOG_H
#define QV_SYSLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Write a line of the given level (0..7 as in syslog), module and tag. Any thread; errno is kept.
 *
 * `output` 1 marks an ordinary log line: one line "<level> <module>/<tag>: <text>" per line of the text on standard
 * error, or to syslog(3) when QV_SYSLOG is "syslog" in the environment. QV_SYSLOG_LEVEL, 0..7, leaves out the lines of
 * a higher level number (7, that is every line, when it is unset or no such number). `output` 2 marks a line that a
 * person asked to see: the bare text on standard output, whatever its level. A text without a line end gets one. A
 * module that begins with a line end sets a block off from what came before by an empty line; syslog(3) has no use for
 * that.
 *
 * The environment is read at the first line. */
__attribute__((visibility("default"), format(printf, 5, 6))) void
printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif
