// Linked into a gateway, this lets the test ask for that process's heap.
#include "HeapInUse.h"
#include "TOstelApplication.h"

namespace {

struct THeapMeter : IOstelIpcMethodHandler {
    THeapMeter() { getOstelIpcInstance()->AddMethodHandler("HEAP_IN_USE", this); }
    int OnMethodCall(const std::string&, const std::string&, std::string& reply) override {
        reply = std::to_string(HeapInUse());
        return 0;
    }
};

THeapMeter theHeapMeter;

}  // namespace
