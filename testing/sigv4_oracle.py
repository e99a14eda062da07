"""Signs requests with botocore, as an independent check of our SigV4 signer.

Reads one JSON object per line on standard input:
  {"method", "bucket", "key" (may be null), "query": [[name, value or null], ...],
   "headers": {name: value}, "access", "secret"}
headers hold host, x-amz-date and x-amz-content-sha256. Writes one line per
request: the canonical request as JSON, a tab, and the signature.
"""
import json
import sys
from urllib.parse import quote

from botocore.auth import S3SigV4Auth
from botocore.awsrequest import AWSRequest
from botocore.credentials import Credentials

for line in sys.stdin:
    item = json.loads(line)
    path = "/" + quote(item["bucket"], safe="-_.~")
    if item["key"] is not None:
        path += "/" + quote(item["key"], safe="/-_.~")
    headers = item["headers"]
    request = AWSRequest(method=item["method"], url="http://" + headers["host"] + path,
                         headers={k: v for k, v in headers.items() if k != "x-amz-content-sha256"},
                         params=[(name, "" if value is None else value) for name, value in item["query"]])
    request.headers["X-Amz-Content-SHA256"] = headers["x-amz-content-sha256"]
    request.context["timestamp"] = headers["x-amz-date"]
    auth = S3SigV4Auth(Credentials(item["access"], item["secret"]), "s3", "auto")
    canonical = auth.canonical_request(request)
    signature = auth.signature(auth.string_to_sign(request, canonical), request)
    print(json.dumps(canonical) + "\t" + signature, flush=True)
