#!/usr/bin/env bash
# Validates the documents that tests have kept against a schema.
# usage: validate-documents.sh SCHEMA DOCUMENT_OR_DIRECTORY
set -euo pipefail

schema=$1
if [ -d "$2" ]; then
  shopt -s nullglob
  documents=("$2"/*.xml)
else
  documents=("$2")
fi
if [ ${#documents[@]} -eq 0 ] || [ ! -e "${documents[0]}" ]; then
  echo "validate-documents: there is no document in $2; run the tests that keep some" >&2
  exit 1
fi
# Each on its own, so that the number of documents has no limit; only failures are shown.
for document in "${documents[@]}"; do
  if ! words=$(xmllint --nonet --noout --schema "$schema" "$document" 2>&1); then
    echo "$words" >&2
    exit 1
  fi
done
echo "${#documents[@]} documents are valid"
