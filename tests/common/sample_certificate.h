// A certificate for programs without a vault.
#pragma once

// Self-signed, for "CN=web", in Base64.
inline constexpr char kSampleCertificate[] =
    "MIIBcjCCARmgAwIBAgIUCHIXVN2ASC8nr181GSY2l026twcwCgYIKoZIzj0EAwIwDjEMMAoGA1UEAwwDd2ViMCAXDTI2MTEyMzEzMTYzM1oYDz"
    "IxMjYxMDMwMTMxNjMzWjAOMQwwCgYDVQQDDAN3ZWIwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAASSvbhwvcoq7K+HjCj+b1VCTVFPhRGcDMEw"
    "ZOYz/5FquACI/3KVdHtAl66z1WMEGxQRoaW8r+ACLIly5A3p6MsMo1MwUTAdBgNVHQ4EFgQUUQpEcd0HC2cbBmHqv/zAAfLXeoMwHwYDVR0jBB"
    "gwFoAUUQpEcd0HC2cbBmHqv/zAAfLXeoMwDwYDVR0TAQH/BAUwAwEB/zAKBggqhkjOPQQDAgNHADBEAiAFot4VabttfH2fi9IWnoGqwZsjPC07"
    "brkrEDZAU710qAIgFzqEEWRfwBI2LQgrhNDwigyjGvnX1ItlM+1P/lGCj8Y=";
