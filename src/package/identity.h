#pragma once

#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "package/manifest.h"

// A format, "/" and a bundle's name, such as VST3/MarbrelHD.vst3. It identifies a bundle, and is
// its relative path in the payload, in the plug-in directory and in each area of a run directory.
using BundleKey = std::string;

inline constexpr std::array<std::string_view, 2> products = {"Marbrel", "Quellotrone"};
inline constexpr std::array<std::string_view, 2> formats = {"VST3", "Components"};
inline constexpr std::array<std::string_view, 6> bundleNames = {
    "MarbrelHD.vst3",        "MarbrelLowCPU.vst3",        "Quellotrone.vst3",
    "MarbrelHDAU.component", "MarbrelLowCPUAU.component", "QuellotroneAU.component",
};

// Takes a known bundle name and a known format. Gives whether the bundle is of that format.
bool isOfFormat(std::string_view name, std::string_view format);

// Takes the key or the name of a known bundle, and a known product. Gives whether the bundle is of
// that product.
bool isOfProduct(std::string_view key, std::string_view product);

// Takes the package's manifest and gives the bundles that it names.
// Fails with "Missing bundle", "Unexpected format", "Unexpected bundle identity" or
// "Format mismatch", for the first entry in key order that breaks a rule.
std::set<BundleKey> bundlesOf(const Manifest& manifest);

// Takes the package directory and gives its product, the first line of PRODUCT.txt.
// Fails with "Unknown product".
std::string productOf(const std::filesystem::path& package);

// Takes the package's bundles and its product, and returns if all are of that product.
// Fails with "Mixed product package refused".
void checkOneProduct(const std::set<BundleKey>& bundles, const std::string& product);

// Takes the package's bundles and gives their one format, "VST3" or "Components".
// Fails with "Use one format per package".
std::string oneFormat(const std::set<BundleKey>& bundles);
