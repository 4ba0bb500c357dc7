#include "Binder.h"

#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>
#include <android/binder_status.h>

void AIBinder_decStrong(AIBinder* binder) {
    delete binder;  // the only reference: see Binder.h
}

struct AStatus {
    binder_status_t status;
};

AStatus* AStatus_newOk() {
    return AStatus_fromStatus(STATUS_OK);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    return new AStatus{status};
}

bool AStatus_isOk(const AStatus* status) {
    return status->status == STATUS_OK;
}

void AStatus_delete(AStatus* status) {
    delete status;
}

namespace ndk {

SharedRefBase::~SharedRefBase() = default;
ICInterface::~ICInterface() = default;

}  // namespace ndk
