#include "tests/digest/calc_without_type_info.h"

namespace {

class CalcWithoutTypeInfo : public IHash_Calc {
public:
    void Update(const void*, std::size_t) override {}
};

} // namespace

IHash_Calc& calcWithoutTypeInfo() {
    static CalcWithoutTypeInfo calc;
    return calc;
}
