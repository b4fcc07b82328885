// The device's key-value store. Keys and values are counted byte strings: a key whose length counts its terminating
// NUL is another key than the same text without it. Every call is bounded in time.
#pragma once

#include <cstdint>

using KvdbGetCallback = void (*)(const char* key, int key_length, const char* value, int value_length, void* user);

// 1 on success, -1 on failure. A store that cannot be reached is tried again by later calls.
int Kvdb_Start(const char* host, uint16_t port);
int Kvdb_Stop();

// 1 when stored, -1 on failure.
int Kvdb_SetKey(const char* key, uint16_t key_length, const char* value, uint32_t value_length);

// 1 when found (the callback ran before the return), 0 when the store has answered that there is no such key, or has
// one that is longer than any document, -1 when it has not answered.
int Kvdb_GetKey(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user);
int Kvdb_GetKeyAbsolutely(const char* key, uint16_t key_length, KvdbGetCallback callback, void* user);

// 1 when the key is gone (also when it never was), -1 on failure.
int Kvdb_DeleteKey(const char* key, uint16_t key_length);

// Keeps the text of a document that cannot be read, because something else is about to be stored under its key: beside
// the store, where no backup and no document is touched; the newest of each key, its first 16 KiB. 1 when kept, -1 on
// failure.
int Kvdb_KeepUnreadable(const char* key, uint16_t key_length, const char* text, uint32_t length);

// The whole store to its backup and back; 1 on success, -1 on failure or when there is no backup to restore.
int Kvdb_BackupDatabase();
int Kvdb_RestoreDatabase();
