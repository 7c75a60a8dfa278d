// Models and differences as text for people and as JSON for programs. Everything is written object by object: the
// largest piece in memory is one object.
#ifndef CFMCTL_RENDER_H
#define CFMCTL_RENDER_H

#include <cstddef>
#include <ostream>
#include <string>

#include "difference.h"
#include "model.h"
#include "ports.h"
#include "style.h"

namespace cfmctl {

void RenderTree(const Model& model, const Ports& ports, const Style& style, std::ostream& out);

/// One document; docs/cfmctl.md describes it.
void RenderJson(const Model& model, const Ports& ports, std::ostream& out);

/// "created 3, updated 1, replaced 0, deleted 2"
std::string CountsText(const Difference& difference);

/// A line for each change, at most `most` of them and then how many were left out.
void RenderChanges(const Difference& difference, std::size_t most, const Style& style, std::ostream& out);

}  // namespace cfmctl

#endif
