// SPDX-License-Identifier: MIT
#pragma once

/// The opaque handle of a started job: what a runnable manager hands out and names in its
/// finished() signal. It is only ever compared. A handle may be given out anew once its job has
/// finished. Known to Qt's meta-type system as "HRunnable", another name of void*.
typedef void* HRunnable;
