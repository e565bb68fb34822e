// Byte runs that the server socket would not take yet.
#include "base/counters.h"
#include "base/list.h"
#include "base/log.h"
#include "client/transport.h"

#include <cstdlib>
#include <cstring>

namespace bri::client {

namespace {

// Other threads read the figures without the lock, to print them.
void link_before(bri_clnt_ctx &ctx, bri_list &place, Run &run) {
    list::append(place, run.link); // behind the last node before `place`
    word::store(ctx.cache_cnt, ctx.cache_cnt + 1);
    counters::g_senders.cached.add(1);
    if (ctx.cache_cnt > counters::g_senders.most_cached)
        word::store(counters::g_senders.most_cached, uint32_t{ctx.cache_cnt});
    BRI_PROBE(cache_in, ctx.cache_cnt);
}

bool drop([[maybe_unused]] const bri_clnt_ctx &ctx) {
    word::store(counters::g_senders.dropped, counters::g_senders.dropped + 1);
    BRI_PROBE(cache_drop, ctx.cache_cnt);
    return false;
}

} // namespace

Run *make_run(uint32_t size) {
    auto *run = static_cast<Run *>(std::malloc(sizeof(Run) + size));
    if (run != nullptr)
        *run = Run{{}, size, 0, false};
    return run;
}

bool cache_msg(bri_clnt_ctx &ctx, const void *bytes, uint32_t n, uint32_t written) {
    if (written == 0 && ctx.cache_cnt >= ctx.cache_max) {
        word::store(ctx.cache_drop, ctx.cache_drop + 1);
        BRI_LOG(log::kClient, "Failed to create msg node, reach maximun cache msg.\n");
        return drop(ctx);
    }
    Run *run = make_run(n);
    if (run == nullptr) {
        BRI_LOG(log::kClient, "Failed to create msg node.\n");
        return drop(ctx);
    }
    std::memcpy(run->bytes(), bytes, n);
    run->written = written;
    link_before(ctx, ctx.cache, *run);
    return true;
}

void cache_half_written(bri_clnt_ctx &ctx, Run &run) {
    link_before(ctx, *ctx.cache.next, run);
}

void cache_begins_at(bri_clnt_ctx &ctx, bri_list &oldest, uint32_t runs) {
    ctx.cache.next = &oldest;
    oldest.prev = &ctx.cache;
    word::store(ctx.cache_cnt, runs);
}

void drop_run(bri_clnt_ctx &ctx, Run &run) {
    list::unlink(run.link);
    word::store(ctx.cache_cnt, ctx.cache_cnt - 1);
    release_run(run, ctx.cache_cnt);
}

Run *half_written_run(bri_clnt_ctx &ctx) {
    Run *run = list::first<Run>(ctx.cache);
    return run != nullptr && run->written != 0 ? run : nullptr;
}

// Only the oldest run can be half written: nothing overtakes it.
void rewind_cache(bri_clnt_ctx &ctx) {
    Run *run = half_written_run(ctx);
    if (run == nullptr)
        return;
    if (run->given_up)
        drop_run(ctx, *run);
    else
        run->written = 0;
}

} // namespace bri::client
