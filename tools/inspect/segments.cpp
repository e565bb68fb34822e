#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"

#include <cerrno>
#include <cstring>

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
            {"key", static_cast<uint32_t>(wire::key_of(segment, vsd))},
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
    for (const Segment *segment : wire::all_segments()) {
        try {
            report.rows.push_back(row_of(*segment, vsd, facts_of(*segment, vsd)));
        } catch (const Missing &reason) {
            if (!may_be_missing(*segment, vsd))
                missing.emplace_back(reason.what());
        } catch (const Unreadable &reason) {
            missing.emplace_back(reason.what());
        }
    }
    return report;
}

Report remove_segments(int32_t vsd, bool really, std::vector<std::string> &failures) {
    Report report{"objects",
                  Json::object(),
                  {{"OBJECT", "object"}, {"ID", "id"}, {"KEY", "key", true}, {"REMOVED", "removed"}},
                  {}};
    for (const wire::SystemObject &object : wire::system_objects(vsd)) {
        const bool removed = really && wire::remove(object);
        if (really && !removed)
            failures.push_back(wire::text_of(object) + " cannot be removed: " + std::strerror(errno));
        report.rows.push_back({{"object", wire::text_of(object)},
                               {"id", object.id},
                               {"key", static_cast<uint32_t>(wire::key_of(*object.segment, vsd))},
                               {"removed", removed}});
    }
    report.nothing = "nothing to remove";
    return report;
}

} // namespace inspect
