// How a thread yields the processor.
#pragma once

namespace kt
{
/// The calling thread begins, or ends, to be the thread of a scan.
void SetScanThread(bool scanning);

/// Yields; on the thread of a scan at most once in 200 µs of real time since that thread's last yield, because on a busy
/// machine each costs a whole time slice. Tells whether it did.
///
/// Threads: any; the state is each thread's own.
bool YieldProcessor();
}  // namespace kt
