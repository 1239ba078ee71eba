#pragma once
// Makes effect objects by class id: the one entry the module's class factory
// needs. Knows the seven classes of ZORAPOClasses(); each object is made,
// FinalConstruct-ed and asked for `riid`, and its creation reference is
// handed over through *ppv.

#include "platform/com.h"

// S_OK with *ppv set; E_POINTER for a null ppv; CLASS_E_NOAGGREGATION for a
// non-null outer (no class aggregates); REGDB_E_CLASSNOTREG for an unknown
// class id; E_OUTOFMEMORY; or the object's QueryInterface failure (then
// nothing is kept). *ppv is null on every failure.
HRESULT ZORAPOCreateInstance(REFCLSID clsid, IUnknown* outer, REFIID riid, void** ppv);
