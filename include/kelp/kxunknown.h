// The library's own small object interface: an object that is asked for an interface
// by a 16-byte identifier and counts its references. Interfaces that callers hold
// across module boundaries (the streaming sample-rate converter) derive from it.
#pragma once

#include <cstring>

#include "kelpdefs.h"

// QueryInterface's answer for an identifier that the object does not serve.
constexpr KXRESULT KXE_NOINTERFACE = int32_t(0x80004002u);

namespace kelp {

// {00000000-0000-0000-C000-000000000046}
constexpr KXGUID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

class KELP_API IUnknown {
  public:
    // For an identifier the object serves: *object is the interface, with a reference
    // added, and the result is KX_OK. Otherwise *object is null and the result is
    // KXE_NOINTERFACE.
    virtual KXRESULT QueryInterface(const KXGUID& iid, void** object) = 0;
    // The new count.
    virtual uint32_t AddRef() = 0;
    // The new count; the object is gone when it reaches 0.
    virtual uint32_t Release() = 0;

  protected:
    // Objects end through Release, never through delete on the interface.
    ~IUnknown() {}
};

} // namespace kelp
