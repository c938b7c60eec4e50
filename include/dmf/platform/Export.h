#pragma once

/// Marks what the shared library offers to programs and plug-ins; everything else keeps hidden visibility.
#define DMF_EXPORT __attribute__((visibility("default")))
