// The memory of libxml2: what it could not get, and what it gives back with a password in it.
//
// libxml2 does not check the copies that it makes of names and values: without memory an element may come out
// without its name, and nobody is told. So its memory goes through functions of ours, which leave a mark for
// the thread, and whoever calls libxml2 looks at the mark afterwards.
#pragma once

// Gives libxml2 these functions. Once per process, before any thread uses it.
void xml_memory_init();

// Before libxml2 is called: whatever it did before in this thread, its memory was there. Throws
// std::bad_alloc if there is none for libxml2's own state.
void xml_memory_begin();

// Whether memory ran out since; takes the mark away.
bool xml_memory_ran_out();
void throw_if_xml_memory_ran_out(); // std::bad_alloc

// Whether an xml_secrets exists in this thread.
bool xml_memory_is_secret();
