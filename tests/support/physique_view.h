// The Physique export interface of a node as the exporter reads it, told as
// text, so that a test states what each vertex answers in one literal.
#pragma once

#include <functional>
#include <string>
#include <vector>

class INode;
class IPhysiqueExport;

namespace ztx_test {

// The Physique modifier's export interface on the node's topmost derived
// object, as the pre-pass finds it; null when there is none.
IPhysiqueExport* physiqueOf(INode* node);

// Each vertex of the node's context, from index -1 to one past the last:
// "none" where no interface is handed out, else "type T" and the interfaces
// it offers, "rigid NODE" or "blended NODE WEIGHT NODE WEIGHT ..." (NODE as
// `label` names it, "none" for a null node). Every interface is released
// again; a blended one is also asked past its ends, where it answers nothing.
std::vector<std::string> physiqueVertices(INode* node, const std::function<std::string(INode*)>& label);

}  // namespace ztx_test
