// The bridge module of a lab machine's kernel, see lab/module: no double, the kernel itself. Where there is none all of
// these fail, and nothing is changed.
#pragma once

#include <string>

namespace test {

[[nodiscard]] bool module_loaded();
// Loads the file that BRIDGE_MODULE names.
[[nodiscard]] bool load_module();
// Waits while the kernel uses it.
[[nodiscard]] bool unload_module();
// A command of lab/module/control.c.
[[nodiscard]] bool tell_module(const std::string &command);
// What it shows of itself; and the number behind a word that begins one of the lines, -1 without one.
[[nodiscard]] std::string module_text();
[[nodiscard]] long module_figure(const std::string &word);

// The kernel without the module, for as long as it lives.
class WithoutModule {
  public:
    WithoutModule() : was_(module_loaded()), gone_(was_ && unload_module()) {}
    ~WithoutModule() { static_cast<void>(gone_ && load_module()); }
    WithoutModule(const WithoutModule &) = delete;
    WithoutModule &operator=(const WithoutModule &) = delete;

    [[nodiscard]] bool away() const { return gone_ || !was_; }

  private:
    bool was_;
    bool gone_;
};

} // namespace test
