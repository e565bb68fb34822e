/* The public headers ask for it; the kernel has these types elsewhere. */
#include <linux/types.h>
