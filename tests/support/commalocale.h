// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <locale>
#include <string>

/// While it lives, the host's locale writes one half as "0,5": for streams always, for the functions of C where the
/// system has such a locale or makes one.
class CCommaLocale
{
    template <typename Char>
    struct SComma : std::numpunct<Char>
    {
        Char do_decimal_point() const override { return ','; }
        Char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

public:
    CCommaLocale() : m_oldC(std::setlocale(LC_ALL, nullptr)), m_old(std::locale::global(withCommas()))
    {
        if (!setForC()) std::cout << "no locale with a comma for the functions of C: tested with streams only\n";
    }
    CCommaLocale(const CCommaLocale&) = delete;
    ~CCommaLocale()
    {
        std::locale::global(m_old);
        std::setlocale(LC_ALL, m_oldC.c_str());
    }

private:
    static std::locale withCommas()
    {
        return std::locale(std::locale(std::locale(), new SComma<char>), new SComma<wchar_t>);
    }

    static bool setForC()
    {
        for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8"})
            if (std::setlocale(LC_ALL, name)) return true;

        const std::string folder = testing::TempDir() + "zorvan_locales_" + std::to_string(::getpid());
        std::filesystem::create_directory(folder);
        const std::string command = "localedef -i de_DE -f ISO-8859-1 '" + folder + "/de_DE' >/dev/null 2>&1";
        const bool isMade = std::system(command.c_str()) == 0 && ::setenv("LOCPATH", folder.c_str(), 1) == 0 &&
                            std::setlocale(LC_ALL, "de_DE");
        ::unsetenv("LOCPATH");
        std::filesystem::remove_all(folder);
        return isMade;
    }

    std::string m_oldC;
    std::locale m_old;
};
