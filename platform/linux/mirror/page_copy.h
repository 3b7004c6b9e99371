// Copies the pages that a tracker has taken.
#pragma once

#include "platform/linux/mirror/copying.h"

// Copies every taken page to the mirror, in order. The facts announce each write before it is made.
// FAILED_AT and ERROR of the result are set as copy_blocks does; WRITTEN counts bytes.
copy_result copy_taken_pages(copying &work);
