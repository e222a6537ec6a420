#pragma once

#include <gst/gst.h>

/// The type of the element `zrnsrc`.
GType zrn_src_get_type();
