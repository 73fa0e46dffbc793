#pragma once

#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "package/manifest.h"

// The name of a format's directory, "/" and a bundle's name, such as VST3/MarbrelHD.vst3: one
// bundle's identity, and its relative path in every tree that the system handles.
using BundleKey = std::string;

inline constexpr std::array<std::string_view, 2> products = {"Marbrel", "Quellotrone"};
inline constexpr std::array<std::string_view, 2> formats = {"VST3", "Components"};

// Takes the package's manifest and gives the bundles that it names.
// Fails with "Missing bundle", "Unexpected format", "Unexpected bundle identity" or
// "Format mismatch", for the first entry in key order that breaks a rule.
std::set<BundleKey> bundlesOf(const Manifest& manifest);

// Take the name of a product, or of a format, and return if the system knows it.
// Fail with "Unknown product" and "Unexpected format".
void checkProduct(const std::string& product);
void checkFormat(const std::string& format);

// Takes the package directory and gives its product, the first line of PRODUCT.txt.
// Fails with "Unknown product".
std::string productOf(const std::filesystem::path& package);

// Takes the package's bundles and its product, and returns if all are of that product.
// Fails with "Mixed product package refused".
void checkOneProduct(const std::set<BundleKey>& bundles, const std::string& product);

// Takes the package's bundles and gives their one format, "VST3" or "Components".
// Fails with "Use one format per package".
std::string oneFormat(const std::set<BundleKey>& bundles);

// Takes a product and a format and gives every bundle of them that the system knows.
std::set<BundleKey> knownBundles(const std::string& product, const std::string& format);
