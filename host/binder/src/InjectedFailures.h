// Shared between the parts of the library that hold injected failures.
#ifndef BINDER_HOST_INJECTED_FAILURES_H
#define BINDER_HOST_INJECTED_FAILURES_H

namespace binder_host::internal {

// Forgets the pending failures of AIBinder_DeathRecipient_new and AIBinder_linkToDeath.
void forgetDeathFailures();

}  // namespace binder_host::internal

#endif  // BINDER_HOST_INJECTED_FAILURES_H
