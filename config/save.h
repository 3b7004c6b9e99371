// Saves a text over a file in place, so that no end of the working process leaves the file empty or torn.
//
// The file is never truncated first. Room for a longer text is made by appending blank lines, which change
// nothing for a reader of XML; a full file system therefore leaves the old text. Then one write replaces the
// text, padded with blank lines to the old length, and the padding is cut off.
//
// A kill can still stop a write between two pages. So the text of a save that is under way also stands in
// memory that the supervisor shares with its working process, and the supervisor finishes the save before it
// starts the next process. What a power cut leaves is up to the file system: there is no fsync.
#pragma once

#include <string_view>

// Returns 0, or -1 after an error line. The caller makes sure that only one save runs at a time.
int save_in_place(const char *path, std::string_view text);

// For the supervisor, before its first fork: saves from now on are kept until they are complete. Without it,
// and when the memory cannot be had, saves work all the same but nobody finishes them.
void keep_unfinished_saves();

// For the supervisor, when no working process runs: finishes the save that the last one began, if there is
// one.
void finish_save(const char *path);
