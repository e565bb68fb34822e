// The one gate to the system log.
//
// BRI_LOG(category, format, ...) hands the line to the syslog library when the category's debug flag is set. The flag
// is tested before any argument is evaluated, so a line that is off costs one byte load and a branch.
#pragma once

#include <bridge/debug.h>

#include <qv_syslog.h>

namespace bri::log {

inline constexpr int kAlways = -1;

struct Category {
    int flag; // index into g_bri_clnt_dbg, or kAlways
    int level;
    const char *module;
    const char *tag;
    int output;

    [[nodiscard]] bool on() const { return flag == kAlways || switch_byte() != 0; }

    // Of a category that has one; for who looks at several at once.
    [[nodiscard]] uint8_t switch_byte() const {
#ifdef BRI_WITHOUT_LINES // what the benchmark holds the lines that are off against
        return 0;
#endif
        return __atomic_load_n(&g_bri_clnt_dbg[flag], __ATOMIC_RELAXED);
    }
};

// A value for a text that asks for "%d" whatever the value's type: the texts are an interface.
template <class T> [[nodiscard]] constexpr int number(T value) {
    return static_cast<int>(value);
}

inline constexpr int kLog = 1;  // an ordinary log line
inline constexpr int kShow = 2; // a line of a show function

inline constexpr int kDebug = 7;
inline constexpr int kNotice = 5;

// Client runtime, kernel channel, VLAN groups.
inline constexpr Category kClient{BRI_DBG_MSG, kDebug, "BRIDGE", "LIB_DEBUG", kLog};
// Shared state.
inline constexpr Category kSem{BRI_DBG_VLAN, kDebug, "BRIDGE", "SEM", kLog};
inline constexpr Category kShm{BRI_DBG_VLAN, kDebug, "BRIDGE", "SHM", kLog};
inline constexpr Category kPortDb{BRI_DBG_VLAN, kDebug, "BRIDGE", "PORT-DB", kLog};
inline constexpr Category kVlanDb{BRI_DBG_VLAN, kDebug, "BRIDGE", "VLAN-DB", kLog};
// VLAN client and the topology lines that name the client.
inline constexpr Category kVlan{BRI_DBG_VLAN, kDebug, "VLIB", "DEBUG", kLog};
// MAC client; its lines also pass the MAC filter.
inline constexpr Category kMac{BRI_DBG_MAC, kDebug, "MAC", "CLIENT_DEBUG", kLog};
// What a person asked to see.
inline constexpr Category kPrint{kAlways, kDebug, "BRIDGE", "DEBUG", kShow};
// The same, set off from what came before.
inline constexpr Category kPrintHead{kAlways, kDebug, "\nBRIDGE", "DEBUG", kShow};
// The one notice that is always written.
inline constexpr Category kMvlanQuery{kAlways, kNotice, "MVLAN", "QUERY", kLog};

} // namespace bri::log

// NOLINTBEGIN(cppcoreguidelines-macro-usage): the arguments must not be evaluated while the flag is off
#define BRI_LOG(category, ...)                                                                                         \
    do {                                                                                                               \
        if ((category).on())                                                                                           \
            BRI_LOG_ALWAYS(category, __VA_ARGS__);                                                                     \
    } while (false)

#define BRI_LOG_ALWAYS(category, ...)                                                                                  \
    printk_syslog_ext((category).level, (category).module, (category).tag, (category).output, __VA_ARGS__)
// NOLINTEND(cppcoreguidelines-macro-usage)
