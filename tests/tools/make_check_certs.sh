#!/usr/bin/env bash
# The certificates of the `sitelist check` tests, made in DIR:
#   ca.pem                     "Check Test CA", the CA the tests' site lists trust
#   good.pem, good.key         mgmt.test.example, issued by that CA
#   other-ca.pem               "Other Test CA", which no list trusts
#   other.pem, other.key       mgmt.test.example, issued by the other CA
# EC keys, so that making them takes milliseconds.
set -euo pipefail
dir=${1:?usage: make_check_certs.sh DIR}
cd "$dir"

ca() {  # NAME SUBJECT
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 \
    -subj "$2" -keyout "$1.key" -out "$1.pem" 2>/dev/null
}
server() {  # NAME CA
  openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
    -subj "/O=Check Tests/CN=mgmt.test.example" -keyout "$1.key" -out "$1.csr" 2>/dev/null
  printf 'subjectAltName=DNS:mgmt.test.example\n' > "$1.ext"
  openssl x509 -req -in "$1.csr" -CA "$2.pem" -CAkey "$2.key" -CAcreateserial -days 2 \
    -extfile "$1.ext" -out "$1.pem" 2>/dev/null
  rm -f "$1.csr" "$1.ext"
}

ca ca "/O=Check Tests/CN=Check Test CA"
ca other-ca "/O=Elsewhere/CN=Other Test CA"
server good ca
server other other-ca
