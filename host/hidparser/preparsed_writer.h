// Writes the preparsed data of one top-level collection (layout in
// preparsed_layout.h), in one pass into one allocation.
#pragma once

#include "host/hidparser/collection_model.h"
#include "host/hidparser/report_descriptor_parser.h"

namespace host::hid {

// May throw std::bad_alloc; the caller turns it into a parse error.
PreparsedBlob WritePreparsedBlob(const CollectionModel& model);

}  // namespace host::hid
