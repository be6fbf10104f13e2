#pragma once

// The eighteen message records of the update service. Each record keeps its
// fields as members, every one absent until set, with an accessor pair
// (InstallationID() and setInstallationID()), and lists them once in its field
// table, in wire order, which drives writing, reading and printing. kXsiType
// is the text that names the record type on the wire.
#include "messages/kora_request_records.h"
#include "messages/kora_response_records.h"
