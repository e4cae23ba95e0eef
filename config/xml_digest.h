// The digest that stands in a document's attribute. Not installed.

#ifndef PELORIK_CONFIG_XML_DIGEST_H
#define PELORIK_CONFIG_XML_DIGEST_H

#include "config/vpnxml.h"
#include "digest/_md5.h"

namespace pelorikutil {

HashMD5 digestOf(const XMLDeclaration& root);

} // namespace pelorikutil

#endif
