#include <tq4/numcore/ref_counted.h>

namespace tq4::numcore
{

ref_counted::~ref_counted() = default;

void ref_counted::__destroy() const noexcept
{
    delete this;
}

} // namespace tq4::numcore
