#pragma once

namespace orvane::robot {

/// Has MuJoCo tell this process what goes wrong instead of doing as it would: write MUJOCO_LOG.TXT
/// and, for an error, wait for somebody to press Enter. A warning goes to the log, at most one a
/// second; an error, after which MuJoCo can't go on, is a line on standard error and ends the
/// process with status 1. What is wrong with a model isn't among them: loading it tells of that.
///
/// Once is enough for the process, more does no harm. On any thread.
void installMuJoCoHandlers();

}  // namespace orvane::robot
