// The one header that shows the bus library's types, and the logging library's.
#include "TOstelDBus.h"
#include "zt_logging.h"

int main() {
    ztLogging_log(ZT_LOG_LEVEL_NOTICE, "%s", "an application");
    const TOstelDBus bus;
    return 0;
}
