// Jobs that the host's loop would not take. Whoever adds a job that the library cannot do without notes here how that
// ended. A refused job is asked for again by the flush timer, every 50 ms until the loop takes it; the flush timer
// itself by whatever job of the library runs next. Loop thread. Implemented where the jobs are added,
// client/thread_events.cpp.
#pragma once

namespace bri::refused_jobs {

// Adds a job, if it is still needed, and notes how that ended.
using Add = void (*)();

// Gives `taken` back.
bool note(Add add, bool taken);

// First thing in a job of the library: adds the flush timer when it was refused.
void keep_flush_timer();

// From the flush timer: asks again for each refused job, once.
void add_all();

} // namespace bri::refused_jobs
