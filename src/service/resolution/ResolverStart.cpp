#include "service/resolution/ResolverStart.h"

#include <utility>

namespace dmf::internal {
namespace {

thread_local ResolverScope* innermost = nullptr;

} // namespace

ResolverScope::ResolverScope(const ADMBaseServiceResolver& resolver, std::shared_ptr<ResolverStart> about)
    : start(std::move(about)), resolver_(resolver), outer_(std::exchange(innermost, this))
{
}

ResolverScope::~ResolverScope()
{
    innermost = outer_;
}

ResolverScope* ResolverScope::current(const ADMBaseServiceResolver& resolver) noexcept
{
    auto* scope = innermost;
    while (scope && &scope->resolver_ != &resolver)
        scope = scope->outer_;
    return scope;
}

} // namespace dmf::internal
