#pragma once

// Whether p came from the big blocks of the process's malloc (mallocglue.cpp).
bool bigBlocksOwn(const void *p);
