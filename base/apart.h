// Where tables lie that a host may never touch: behind everything else that is written, so that the words which every
// host writes share their pages with none of them. See cmake/apart.ld.
#pragma once

// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): an attribute has no other way to be named
#define BRI_APART [[gnu::section(".bss.apart")]]
