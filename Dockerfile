# quorvel-cli in a container: Debian 12 with the .deb installed, nothing fetched at run time.
# Build the package first (bash tools/bootstrap.sh test && cd build && cpack), then:
#   docker build -t quorvel .
#   docker run --rm --network none -v "$PWD/in:/in:ro" -v "$PWD/out:/out" quorvel redact /in/card.jpg -o /out/card.png
FROM debian:12-slim
COPY build/quorvel_*.deb /tmp/
RUN apt-get update \
 && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends /tmp/quorvel_*.deb \
 && rm -rf /var/lib/apt/lists/* /tmp/quorvel_*.deb \
 && useradd --create-home --shell /usr/sbin/nologin quorvel
USER quorvel
ENV OMP_THREAD_LIMIT=1
ENTRYPOINT ["quorvel-cli"]
CMD ["--help"]
