#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"

namespace inspect {

namespace {

std::string permissions(const shmid_ds &status) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(status.shm_perm.mode & 0777));
    return text;
}

Json semaphore(const Facts &facts) {
    return facts.sem_id < 0 ? Json("none") : Json(facts.sem_value > 0 ? "free" : "held");
}

Json row_of(const Segment &segment, int32_t vsd, const Facts &facts) {
    return {{"segment", segment.name},
            {"key", static_cast<uint32_t>(key_of(segment, vsd))},
            {"id", facts.id},
            {"bytes", facts.status.shm_segsz},
            {"needed", sizeof(bri_shm_hdr) + segment.size},
            {"attached", facts.status.shm_nattch},
            {"owner", facts.status.shm_perm.uid},
            {"permissions", permissions(facts.status)},
            {"made_by", facts.status.shm_cpid},
            {"last_used_by", facts.status.shm_lpid},
            {"lock_id", facts.sem_id < 0 ? Json() : Json(facts.sem_id)},
            {"lock", semaphore(facts)},
            {"lock_last_pid", facts.sem_id < 0 ? Json() : Json(facts.sem_last_pid)}};
}

} // namespace

Report look_at_segments(int32_t vsd, std::vector<std::string> &missing) {
    Report report{"segments",
                  Json::object(),
                  {{"SEGMENT", "segment"},
                   {"KEY", "key", true},
                   {"ID", "id"},
                   {"BYTES", "bytes"},
                   {"ATTACHED", "attached"},
                   {"OWNER", "owner"},
                   {"PERMISSIONS", "permissions"},
                   {"MADE-BY", "made_by"},
                   {"LOCK-ID", "lock_id"},
                   {"LOCK", "lock"},
                   {"LOCK-LAST-PID", "lock_last_pid"}},
                  {}};
    for (const Segment *segment : all_segments()) {
        try {
            report.rows.push_back(row_of(*segment, vsd, facts_of(*segment, vsd)));
        } catch (const Unreadable &reason) {
            missing.emplace_back(reason.what());
        }
    }
    return report;
}

} // namespace inspect
