/// \file
/// What the module answers to a session reset.
#pragma once

/// Restarts the transfer library. \return nonzero on success; 0, after an informational message, while a transfer runs
int ZEL_ResetSession();
/// Has no effect. For hosts that reset the service clients by a call of their own: they keep nothing of a session.
void ZEL_OgcResetSession();
