#include "modelinfo/xml/Burial.h"

#include <dmf/ADMXMLNodeImp.h>

namespace dmf::internal {

thread_local Burial::Waiting Burial::waiting;

void Burial::of(NodeList::Block* block) noexcept
{
    Waiting& own = waiting;
    block->next = own.first;
    own.first = block;
    if (own.isUnderWay)
        return;
    own.isUnderWay = true;
    while (own.first) {
        NodeList::Block* const next = own.first;
        own.first = next->next;
        letGo(next);
    }
    own.isUnderWay = false;
}

void Burial::letGo(NodeList::Block* block) noexcept
{
    std::destroy_n(block->nodes(), block->size);
    ::operator delete(block);
}

} // namespace dmf::internal
