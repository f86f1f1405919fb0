// hali_msi.h - The persistent memory service as the hardware abstraction layer reaches it.
// Owner   the manager process.
// Errors  a service that isn't there, or refuses, is traced.
#pragma once
#include "node/msi.h"

/// Contact with the persistent memory service and its negotiation, which may be answered in the
/// call: kvd_mgr_mem then has the answer already. 0 asked or answered, -1 no service.
int  HALI_msiInitiate();
/// Asks for a region, three times while the proxy is busy: an MsiResult. `address` isn't 0 when it
/// was answered at once.
u32  HALI_msiAllocate(const node::MsiRequest& request, u32& address);
