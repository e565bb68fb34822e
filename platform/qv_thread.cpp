#include <qv_thread.h>
