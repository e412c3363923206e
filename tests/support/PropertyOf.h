#pragma once
// One optional property of a configuration, read through its getter, for
// tests that check a single value: valueOf(config, &KQSEnvConfig::getName).
#include "KQC/OptionalProperty.h"

namespace kqtest {

template <class Config, class Owner, class T>
KQC::KQCOptionalProperty<T> propertyOf(const Config& config, int (Owner::*getter)(KQC::KQCOptionalProperty<T>&) const)
{
    KQC::KQCOptionalProperty<T> property;
    (config.*getter)(property);
    return property;
}

// Its value; a default-made one when the property is not set.
template <class Config, class Owner, class T>
T valueOf(const Config& config, int (Owner::*getter)(KQC::KQCOptionalProperty<T>&) const)
{
    return propertyOf(config, getter).get();
}

} // namespace kqtest
