// What removals have left behind. A file that cannot be removed is no line in the log, and a
// removal that took anything away counts as done; the disk tells.
#pragma once

struct RunRecord;

// Adds an error to each removal of a run that has just ended, where an entry that it was to take
// away is still there and no later command has made it.
void note_remains(RunRecord &record);
