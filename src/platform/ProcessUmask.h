#pragma once

namespace harbor {

// The process's file-creation mask, read once: every file made asks for it,
// and reading it costs a file open. Whoever changes the mask does it through
// `setProcessUmask`, so the copy stays right.
unsigned processUmask();
// Sets the mask and returns the previous one.
unsigned setProcessUmask(unsigned mask);

}  // namespace harbor
