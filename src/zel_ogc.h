/// \file
/// What the module answers to a session reset.
#pragma once

/// Restarts the transfer library. \return nonzero on success; 0, after an informational message, while a transfer runs
int ZEL_ResetSession();
/// Has no effect.
void ZEL_OgcResetSession();
