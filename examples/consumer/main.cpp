#define JLOG_TAG "Consumer"
#include "jlog/JLogInitializer.h"
#include "jlog/JLogMacros.h"

using namespace JCam::Utils::JLog;

int main() {
    const JLogInitializer initializer(0);
    JLOG_SCOPE(MODULE_COMMON, "main", 1);
    JLOGE(MODULE_COMMON, "%d lines are enough", 10);
}
