// SPDX-License-Identifier: MIT
#pragma once

/// System calls that change files, made by this test program itself, pass a counter: at a chosen one the process dies
/// or the disk is full. So a test stops work at a known place, on any machine.
namespace faults {

/// Dies of SIGKILL just before the given call (1 is the next one) of write, fsync, rename, mkdtemp or rmdir.
void KillAt(int call);
/// That call fails for want of space, as do all later ones.
void FillDiskAt(int call);
/// Dies just before the given rename.
void KillAtRename(int call);
void Disarm();

} // namespace faults
