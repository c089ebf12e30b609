// SPDX-License-Identifier: MIT
//
// Writes one JSON text on standard output, value by value: commas, quotes and escapes are this writer's business.
#ifndef CAMSTAT_APP_SHARED_JSON_H
#define CAMSTAT_APP_SHARED_JSON_H

#include <math.h>
#include <stdint.h>
#include <stdio.h>

namespace cli
{

class Json
{
  public:
    /// The object that a text is, and its end with the line's.
    void Begin() { Open('{'); }
    void End()
    {
        Close('}');
        putchar('\n');
        first_ = true;
    }
    void Open(char bracket, const char *key = nullptr)
    {
        Separate(key);
        putchar(bracket);
        first_ = true;
    }
    void Close(char bracket)
    {
        putchar(bracket);
        first_ = false;
    }
    void Number(const char *key, int64_t value)
    {
        Separate(key);
        printf("%lld", static_cast<long long>(value));
    }
    /// A double; JSON has no word for what is not finite, so that becomes null.
    void Number(const char *key, double value)
    {
        Separate(key);
        if (isfinite(value))
            printf("%.10g", value);
        else
            fputs("null", stdout);
    }
    void Bool(const char *key, bool value)
    {
        Separate(key);
        fputs(value ? "true" : "false", stdout);
    }
    void Null(const char *key)
    {
        Separate(key);
        fputs("null", stdout);
    }
    void Text(const char *key, const char *value)
    {
        Separate(key);
        Quote(value);
    }

  private:
    void Separate(const char *key)
    {
        if (!first_)
            putchar(',');
        first_ = false;
        if (key == nullptr)
            return;
        Quote(key);
        putchar(':');
    }
    /// Bytes beyond ASCII pass: what comes from here is ASCII or what the caller typed.
    static void Quote(const char *text)
    {
        putchar('"');
        for (; *text != '\0'; ++text) {
            const auto byte = static_cast<unsigned char>(*text);
            if (byte == '"' || byte == '\\')
                printf("\\%c", byte);
            else if (byte < 0x20 || byte == 0x7F)
                printf("\\u%04x", byte);
            else
                putchar(byte);
        }
        putchar('"');
    }

    bool first_ = true;
};

} // namespace cli

#endif
