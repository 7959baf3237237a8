#ifndef TABLEDB_PRICING_OPTIONPRICING_P_H
#define TABLEDB_PRICING_OPTIONPRICING_P_H

// 1/sqrt(2*pi), computed once; the library's start-up asks for it first so
// that it exists before any other initialiser can price.
double normDensityConstant();

#endif // TABLEDB_PRICING_OPTIONPRICING_P_H
