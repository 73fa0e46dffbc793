#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "package/manifest.h"

// The name of a format's directory, "/" and a bundle's name, such as VST3/MarbrelHD.vst3: one
// bundle's identity, and its relative path in every tree that the system handles.
using BundleKey = std::string;

// Takes the package's manifest and gives the bundles that it names.
// Fails with "Missing bundle", "Unexpected format", "Unexpected bundle identity" or
// "Format mismatch", for the first entry in key order that breaks a rule.
std::set<BundleKey> bundlesof(const Manifest& manifest);

// Takes the package directory and gives its product, the first line of PRODUCT.txt.
// Fails with "Unknown product".
std::string productof(const std::filesystem::path& package);

// Takes the package's bundles and its product, and returns if all are of that product.
// Fails with "Mixed product package refused".
void oneproduct(const std::set<BundleKey>& bundles, const std::string& product);

// Takes the package's bundles and gives their one format, "VST3" or "Components".
// Fails with "Use one format per package".
std::string oneformat(const std::set<BundleKey>& bundles);
