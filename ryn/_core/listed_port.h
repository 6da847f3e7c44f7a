// ListedPort: a port as a listing gave it, the base of the package's Port.
#pragma once

#include "host/records/ports.h"
#include "ryn/_core/values.h"

namespace ryn {

struct ListedPort {
  PyObject head;
  PyObject* dvs;  // whatever the listing was asked with, owned; null once the collector has cleared it
  PortRecord record;
};

extern PyTypeObject listed_port_type;

// `type` is ListedPort or derived from it.
PyObject* NewListedPort(PyTypeObject* type, PyObject* dvs, const PortRecord& record);

}  // namespace ryn
