// Where project copies run.
#pragma once

namespace ferrox {

class BackgroundQueue;

/// Every copy blocks one of these threads until it ends; further copies wait for their turn. They are none of
/// the HTTP client's, of which there must always be one more to complete what the copies wait for.
/// Thread: any
BackgroundQueue& copyThreads();

/// Where the steps of all copies are started and files are joined, which blocks on the disk and so has no
/// place among the tasks of others. Thread: any
BackgroundQueue& copyStepThreads();

}  // namespace ferrox
